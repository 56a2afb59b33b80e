# The target `tidy`: clang-tidy, with the checks of .clang-tidy, over every source that this build compiles. A file is
# looked at again when its object file is new, which is when it or a header of it has changed. Included last, for it
# takes the sources from the targets that there are. Asked for where it can't be done, it fails.
find_program(VEXTRA_CLANG_TIDY NAMES clang-tidy DOC "Looks for bugs in the sources")
if(NOT VEXTRA_CLANG_TIDY OR NOT CMAKE_GENERATOR STREQUAL Ninja)
    add_custom_target(tidy VERBATIM
        COMMAND ${CMAKE_COMMAND} -E echo "tidy needs clang-tidy, found when configuring, and Ninja"
        COMMAND ${CMAKE_COMMAND} -E false)
    return()
endif()

# The options are GCC's; clang is told for which system, and where the compiler has its library.
set(tidy_options -Wno-unknown-warning-option -fno-caret-diagnostics)
if(CMAKE_CROSSCOMPILING)
    list(APPEND tidy_options --target=${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32 -nostdinc++)
    foreach(folder IN LISTS CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
        # Less GCC's own headers of intrinsics, of which clang has others.
        if(NOT folder MATCHES "/lib/gcc/[^/]+/[^/]+/include(-fixed)?$")
            list(APPEND tidy_options -isystem${folder})
        endif()
    endforeach()
endif()
list(TRANSFORM tidy_options PREPEND --extra-arg=)

function(vextra_tidy_targets folder stamps_variable)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(sources ${target} SOURCES)
        list(FILTER sources INCLUDE REGEX "\\.cpp$")
        foreach(source IN LISTS sources)
            get_filename_component(file ${source} ABSOLUTE BASE_DIR ${folder})
            cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE name)
            set(stamp ${CMAKE_BINARY_DIR}/tidy/${name}.stamp)
            if(NOT name MATCHES "^(src|tests|tools)/" OR stamp IN_LIST ${stamps_variable})
                continue()
            endif()
            # Where CMake puts the object: by the path from the target's folder, ".." spelled "__".
            cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${folder} OUTPUT_VARIABLE object)
            string(REPLACE "../" "__/" object ${object})
            get_target_property(binaries ${target} BINARY_DIR)
            set(object ${binaries}/CMakeFiles/${target}.dir/${object}${CMAKE_CXX_OUTPUT_EXTENSION})
            cmake_path(GET stamp PARENT_PATH stamp_folder)
            file(MAKE_DIRECTORY ${stamp_folder})
            add_custom_command(OUTPUT ${stamp} VERBATIM COMMENT "clang-tidy ${name}"
                DEPENDS ${object} ${CMAKE_SOURCE_DIR}/.clang-tidy ${ARGN}
                COMMAND ${VEXTRA_CLANG_TIDY} --quiet -p ${CMAKE_BINARY_DIR} ${tidy_options} ${file}
                COMMAND ${CMAKE_COMMAND} -E touch ${stamp})
            list(APPEND ${stamps_variable} ${stamp})
        endforeach()
    endforeach()
    set(${stamps_variable} ${${stamps_variable}} PARENT_SCOPE)
endfunction()

set(tidy_stamps)
vextra_tidy_targets(${CMAKE_SOURCE_DIR} tidy_stamps)
vextra_tidy_targets(${CMAKE_SOURCE_DIR}/tools tidy_stamps)
add_custom_target(tidy DEPENDS ${tidy_stamps})
