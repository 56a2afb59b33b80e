# For programs that shall never take a library from beside themselves: the property VEXTRA_DELAYED_IMPORTS.
#
# What a program imports is loaded before its first instruction, and Windows looks beside the program first, except for
# the libraries that the system keeps ready ("KnownDLLs"). The libraries below are not kept ready. A program with the
# property loads them at their first call instead, when it has limited the search to the system's folder; every other
# program imports them as usual. tests/system/hardening.py looks at the outcome.
#
# Sets libraries_beside_the_system: what to link to use them.
set(delayed_libraries bcrypt comctl32 crypt32 winhttp wtsapi32)
add_library(vextra_delayed_imports INTERFACE)
set(libraries_beside_the_system
    "$<IF:$<BOOL:$<TARGET_PROPERTY:VEXTRA_DELAYED_IMPORTS>>,vextra_delayed_imports,${delayed_libraries}>")
if(MSVC)
    target_link_libraries(vextra_delayed_imports INTERFACE ${delayed_libraries} delayimp)
    # And the imports that are left, from the system's folder alone.
    target_link_options(vextra_delayed_imports INTERFACE /DEPENDENTLOADFLAG:0x800)
    foreach(library IN LISTS delayed_libraries)
        target_link_options(vextra_delayed_imports INTERFACE /DELAYLOAD:${library}.dll)
    endforeach()
    return()
endif()

# A .def file holds what is called; what is missing there does not link.
find_program(VEXTRA_DLLTOOL NAMES x86_64-w64-mingw32-dlltool dlltool REQUIRED DOC "Makes the delay-import libraries")
set(delayed_folder ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${delayed_folder})
foreach(library IN LISTS delayed_libraries)
    set(definition ${CMAKE_SOURCE_DIR}/cmake/delayed_imports/${library}.def)
    # In its folder and by its bare name, for the name becomes part of symbols.
    add_custom_command(OUTPUT ${delayed_folder}/lib${library}-delayed.a DEPENDS ${definition} VERBATIM
        COMMAND ${VEXTRA_DLLTOOL} --deterministic-libraries --temp-prefix ${library} --input-def ${definition}
            --dllname ${library}.dll --output-delaylib lib${library}-delayed.a
        WORKING_DIRECTORY ${delayed_folder})
    list(APPEND delayed_import_libraries ${delayed_folder}/lib${library}-delayed.a)
endforeach()
add_custom_target(delayed-import-libraries DEPENDS ${delayed_import_libraries})
add_dependencies(vextra_delayed_imports delayed-import-libraries)
target_link_libraries(vextra_delayed_imports INTERFACE ${delayed_import_libraries})
