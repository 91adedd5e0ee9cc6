# The headers an installed libAudio ships: every header under these folders except the
# library's internals and the simulated platform. The install rules and the header check
# both take the list from here, so what is checked is what is shipped.
function(libaudio_public_headers out)
    set(headers)
    foreach(dir libAudio foundation COM platform)
        file(GLOB_RECURSE found CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
            ${PROJECT_SOURCE_DIR}/${dir}/*.h)
        foreach(header IN LISTS found)
            if(NOT header MATCHES "(^|/)(internal|sim)/")
                list(APPEND headers ${header})
            endif()
        endforeach()
    endforeach()
    list(SORT headers)
    set(${out} ${headers} PARENT_SCOPE)
endfunction()
