# Every public header compiles on its own: one generated translation unit per header that
# includes that header (twice, so a missing include guard shows too) and nothing else.
# Part of the normal build when testing is on; in the Windows cross build turn it on with
# -DLIBAUDIO_CHECK_HEADERS=ON. There the stand-in and machine model headers are left out:
# they take the place of the SDK, which Windows has.
include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)

libaudio_public_headers(_public_headers)
set(_check_dir ${CMAKE_BINARY_DIR}/header_check)
set(_check_sources)
foreach(header IN LISTS _public_headers)
    if(LIBAUDIO_WINDOWS AND header MATCHES "^platform/(standin|model)/")
        continue()
    endif()
    string(REGEX REPLACE "[/.]" "_" unit ${header})
    set(source ${_check_dir}/${unit}.cpp)
    # Rewritten only when the text changes, so a new configure does not rebuild them all.
    file(CONFIGURE OUTPUT ${source}
        CONTENT "#include \"${header}\"\n#include \"${header}\"\n" @ONLY)
    list(APPEND _check_sources ${source})
endforeach()
# Callers built against the Windows signatures (32-bit unsigned long) must link.
list(APPEND _check_sources ${PROJECT_SOURCE_DIR}/tests/headers/WindowsSignatures.cpp)

add_library(libaudio_header_check OBJECT ${_check_sources})
# Only the usage requirements of the installed library: its include root and C++20.
target_link_libraries(libaudio_header_check PRIVATE libAudio libaudio_warnings)
if(NOT LIBAUDIO_WINDOWS)
    find_package(nlohmann_json 3 REQUIRED) # the machine model's JSON values
    target_link_libraries(libaudio_header_check PRIVATE nlohmann_json::nlohmann_json)
endif()

# The Windows signatures are checked with the cross compiler too, when there is one: only
# there is unsigned long a 32-bit type distinct from the one std::uint32_t names.
if(BUILD_TESTING AND NOT LIBAUDIO_WINDOWS)
    find_program(LIBAUDIO_MINGW_POSIX_CXX x86_64-w64-mingw32-g++-posix)
    if(LIBAUDIO_MINGW_POSIX_CXX)
        add_test(NAME headers.WindowsSignatures
            COMMAND ${LIBAUDIO_MINGW_POSIX_CXX} -std=c++20 -fsyntax-only -Wall -Wextra -Werror
                -I${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests/headers/WindowsSignatures.cpp)
    else()
        message(STATUS "x86_64-w64-mingw32-g++-posix not found: Windows signatures not checked")
    endif()
endif()
