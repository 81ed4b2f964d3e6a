# Unit tests: one program a folder, its `*Test.cpp` listed by name beside the classes.

# ostrand_add_tests(NAME SOURCES ... LIBRARIES ...)
function(ostrand_add_tests NAME)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${NAME} ${ARG_SOURCES})
    target_link_libraries(${NAME} PRIVATE ostrand_settings ${ARG_LIBRARIES} GTest::gtest_main)
    # The program as one test: a start for each case costs more than the cases, above all under the
    # sanitizers.
    add_test(NAME ${NAME} COMMAND ${NAME})
    set_tests_properties(${NAME} PROPERTIES TIMEOUT 600)
    foreach(source IN LISTS ARG_SOURCES)
        get_filename_component(path ${source} ABSOLUTE)
        set_property(GLOBAL APPEND PROPERTY OSTRAND_TEST_SOURCES ${path})
    endforeach()
endfunction()

option(OSTRAND_ALLOW_UNLISTED_TESTS "Only warn of test sources that belong to no target" OFF)

# Stops the configuration where a test source belongs to no target: a test that nobody runs.
function(ostrand_check_tests)
    set(severity FATAL_ERROR)
    if(OSTRAND_ALLOW_UNLISTED_TESTS)
        set(severity WARNING)
    endif()
    get_property(listed GLOBAL PROPERTY OSTRAND_TEST_SOURCES)
    foreach(folder host platform framework providers tests)
        file(GLOB_RECURSE found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*Test.cpp)
        foreach(source IN LISTS found)
            if(NOT source IN_LIST listed)
                message(${severity} "${source} belongs to no test target; while it is being written, "
                        "configure with -DOSTRAND_ALLOW_UNLISTED_TESTS=ON")
            endif()
        endforeach()
    endforeach()
endfunction()
