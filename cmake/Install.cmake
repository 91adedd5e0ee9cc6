include(CMakePackageConfigHelpers)

set(LIBAUDIO_INCLUDE_ROOT ${CMAKE_INSTALL_INCLUDEDIR}/libAudio)
set(LIBAUDIO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/libAudio)

set(_installed_targets libAudio)
if(TARGET audiosim)
    list(APPEND _installed_targets audiosim)
endif()
install(TARGETS ${_installed_targets} EXPORT libAudioTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${LIBAUDIO_INCLUDE_ROOT})

include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)
libaudio_public_headers(_public_headers)
foreach(header IN LISTS _public_headers)
    get_filename_component(dir ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${LIBAUDIO_INCLUDE_ROOT}/${dir})
endforeach()

install(EXPORT libAudioTargets NAMESPACE libAudio:: DESTINATION ${LIBAUDIO_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/libAudioConfig.cmake.in
    ${PROJECT_BINARY_DIR}/libAudioConfig.cmake INSTALL_DESTINATION ${LIBAUDIO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/libAudioConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/libAudioConfig.cmake
    ${PROJECT_BINARY_DIR}/libAudioConfigVersion.cmake DESTINATION ${LIBAUDIO_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/libAudio.pc.in ${PROJECT_BINARY_DIR}/libAudio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libAudio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
