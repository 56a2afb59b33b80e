# Included where ctest lists the tests: a class that finds none of a program's tests is an error, and so is a test whose
# name begins with the word of a class that its program does not know, for either would run as what it is not.
if(EXISTS "${program}")
    if(NOT tests)
        message(FATAL_ERROR "${program} has no test of the class ${class}")
    endif()
    list(JOIN all_classes "|" words)
    foreach(test IN LISTS tests)
        # By now the tests of the words that the program knows are in lists of their own.
        string(REGEX REPLACE "^${prefix}([^./]*/)?" "" name "${test}")
        if(class STREQUAL Plain AND name MATCHES "^(${words})[A-Z]")
            message(FATAL_ERROR "${test}: ${program} has no class ${CMAKE_MATCH_1}")
        elseif(NOT class STREQUAL Plain AND NOT name MATCHES "^${class}[A-Z]")
            message(FATAL_ERROR "${test} is of the class ${class} by accident")
        endif()
    endforeach()
endif()
