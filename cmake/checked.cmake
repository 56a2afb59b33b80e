# The checked build (VEXTRA_CHECKED): programs that end at undefined behaviour and at misuse of the library, and say
# where. For tests; packaging/release/package.py refuses it.
if(NOT MINGW)
    message(FATAL_ERROR "VEXTRA_CHECKED is for mingw-w64; elsewhere VEXTRA_SANITIZE does more")
endif()

# There is no runtime of the sanitizer for Windows, hence the traps. What GCC folds before it adds the checks stays unseen:
# of "2147483644 + n < 0" it makes a comparison that cannot overflow.
add_compile_options(-fsanitize=undefined,float-cast-overflow -fsanitize-undefined-trap-on-error)
add_compile_definitions(_GLIBCXX_ASSERTIONS)

# What says where is not checked itself: it would trap in its own handler.
add_library(vextra_trap_report OBJECT ${CMAKE_SOURCE_DIR}/tests/support/trap_report/trap_report_win.cpp)
target_include_directories(vextra_trap_report PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
target_compile_options(vextra_trap_report PRIVATE -fno-sanitize=all)
target_link_libraries(vextra_trap_report PRIVATE vextra_options)
set(is_program $<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>)
target_sources(vextra_options INTERFACE $<${is_program}:$<TARGET_OBJECTS:vextra_trap_report>>)
