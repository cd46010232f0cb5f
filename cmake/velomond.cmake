# Options of all our targets, and the function that lists their sources.

add_library(velomond_options INTERFACE)
target_include_directories(velomond_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_compile_options(velomond_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    -funsigned-char                 # as on the target
    $<$<CONFIG:Release,RelWithDebInfo>:-fstack-protector-strong -fstack-clash-protection>)
# _GNU_SOURCE for strict C as well; C++ has it anyway.
target_compile_definitions(velomond_options INTERFACE
    $<$<COMPILE_LANGUAGE:C>:_GNU_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo>:_GLIBCXX_ASSERTIONS>)
target_link_options(velomond_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:-Wl,-z,relro,-z,now -Wl,--as-needed -pie>)

if(VELOMOND_SANITIZE)
    target_compile_options(velomond_options INTERFACE
        -fsanitize=${VELOMOND_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_compile_definitions(velomond_options INTERFACE VELOMOND_THREAD_STACK=1048576) # sanitizers enlarge the frames
    target_link_options(velomond_options INTERFACE -fsanitize=${VELOMOND_SANITIZE})
else()
    target_compile_definitions(velomond_options INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)
endif()

# velomond_sources(target file...): adds sources of this folder to the target. A source file in the folder that no call
# lists fails the configuration.
function(velomond_sources target)
    foreach(file IN LISTS ARGN)
        target_sources(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    endforeach()
    get_property(checked DIRECTORY PROPERTY VELOMOND_LISTED SET)
    if(NOT checked) # once per folder, after its last call
        cmake_language(DEFER CALL velomond_check_listed)
    endif()
    set_property(DIRECTORY APPEND PROPERTY VELOMOND_LISTED ${ARGN})
    file(GLOB found CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *.c *.cpp)
    get_property(listed DIRECTORY PROPERTY VELOMOND_LISTED)
    list(REMOVE_ITEM found ${listed})
    set_property(DIRECTORY PROPERTY VELOMOND_UNLISTED ${found})
endfunction()

function(velomond_check_listed)
    get_property(unlisted DIRECTORY PROPERTY VELOMOND_UNLISTED)
    if(unlisted)
        message(FATAL_ERROR "not listed in ${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt: ${unlisted}")
    endif()
endfunction()
