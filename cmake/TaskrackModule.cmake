# taskrack_module(<name> DIR <folder> [SUBDIRS <folders>...] DEPS <targets>...
#                 [TEST_PROPERTIES <CTest properties>...])
#
# One library per subsystem folder. Sources are collected from the folder (and the listed
# sub-folders, e.g. the platform implementations) so that adding a component never means
# editing a shared list. Tests are every tests/*_test.cpp beside the module, linked into one
# executable per module and registered with CTest one case at a time.
function(taskrack_module name)
    cmake_parse_arguments(ARG "" "DIR" "SUBDIRS;DEPS;TEST_DEPS;TEST_PROPERTIES" ${ARGN})
    set(dir ${CMAKE_CURRENT_SOURCE_DIR})
    set(globs ${dir}/*.cpp ${dir}/*.h)
    foreach(sub IN LISTS ARG_SUBDIRS)
        list(APPEND globs ${dir}/${sub}/*.cpp ${dir}/${sub}/*.h)
    endforeach()
    file(GLOB sources CONFIGURE_DEPENDS ${globs})
    add_library(taskrack_${name} STATIC ${sources})
    target_include_directories(taskrack_${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(taskrack_${name} PUBLIC ${ARG_DEPS})
    set_target_properties(taskrack_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)

    if(TASKRACK_TESTS AND EXISTS ${dir}/tests)
        file(GLOB test_sources CONFIGURE_DEPENDS ${dir}/tests/*.cpp ${dir}/tests/*.h)
        if(test_sources)
            add_executable(${name}_tests ${test_sources})
            target_link_libraries(${name}_tests PRIVATE taskrack_${name} taskrack_testing
                                  ${ARG_TEST_DEPS})
            gtest_discover_tests(${name}_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                PROPERTIES ENVIRONMENT QT_QPA_PLATFORM=offscreen TIMEOUT 120 ${ARG_TEST_PROPERTIES})
        endif()
    endif()
endfunction()

# Every module library that exists in this build, for programs that may use any of them
# (benchmarks, fuzz targets).
function(taskrack_module_libraries out)
    set(libraries taskrack_core)
    foreach(layer codex claude input panel quicktask voice app)
        if(TARGET taskrack_${layer})
            list(APPEND libraries taskrack_${layer})
        endif()
    endforeach()
    set(${out} ${libraries} PARENT_SCOPE)
endfunction()
