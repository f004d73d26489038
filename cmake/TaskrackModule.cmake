# The layers are enforced by the include paths: no target sees the source tree as a whole.
# Each target publishes the headers of its folder under a root of its own (links into the build
# tree), so a file finds `core/rackstore.h` only when its target links the core library, and
# `platform/linux/...` only when it links the Linux implementations.

# taskrack_publish_headers(<target> <folder> [PRIVATE])
# Links <folder>'s headers (relative to the project) under a root that <target> exposes.
function(taskrack_publish_headers target folder)
    cmake_parse_arguments(ARG "PRIVATE" "" "" ${ARGN})
    string(MAKE_C_IDENTIFIER ${folder} slot)
    set(root ${PROJECT_BINARY_DIR}/headers/${target}/${slot})
    file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.h)
    file(REMOVE_RECURSE ${root})
    file(MAKE_DIRECTORY ${root}/${folder})
    foreach(header IN LISTS headers)
        get_filename_component(name ${header} NAME)
        file(CREATE_LINK ${header} ${root}/${folder}/${name} SYMBOLIC)
    endforeach()
    if(ARG_PRIVATE)
        target_include_directories(${target} PRIVATE ${root})
    else()
        target_include_directories(${target} PUBLIC ${root})
    endif()
endfunction()

# Fails the configuration when a module lists the library of a layer that does not come before
# its own in TASKRACK_LAYERS. Only app/, the hook helper and the test tools link the Linux
# implementations.
function(taskrack_check_layer_order folder)
    list(FIND TASKRACK_LAYERS ${folder} position)
    set(names)
    foreach(layer IN LISTS TASKRACK_LAYERS)
        get_filename_component(layer_name ${layer} NAME)
        list(APPEND names ${layer_name})
    endforeach()
    foreach(dep IN LISTS ARGN)
        if(NOT dep MATCHES "^taskrack_(.+)$")
            continue()
        endif()
        list(FIND names ${CMAKE_MATCH_1} found)
        if(found EQUAL -1 OR (position GREATER_EQUAL 0 AND found GREATER_EQUAL position))
            message(FATAL_ERROR "${folder} may not use ${dep}: a layer uses only those listed "
                                "before it in TASKRACK_LAYERS, and only app/ the Linux platform")
        endif()
    endforeach()
endfunction()

# taskrack_module(<name> [DIR <folder>] DEPS <targets>...
#                 [TEST_DEPS <targets>...] [TEST_PROPERTIES <CTest properties>...])
#
# One library per subsystem folder (DIR, relative to the current source folder, defaults to it).
# Sources are collected from the folder so that adding a component never means editing a
# shared list. Tests are every tests/*_test.cpp beside the module, linked into one executable
# per module and registered with CTest one case at a time; they see the module, its
# dependencies, the test tools, the module's own test headers and whatever TEST_DEPS add (the
# Linux implementations, for tests where the kernel's behaviour is the point).
function(taskrack_module name)
    cmake_parse_arguments(ARG "" "DIR" "DEPS;TEST_DEPS;TEST_PROPERTIES" ${ARGN})
    set(dir ${CMAKE_CURRENT_SOURCE_DIR})
    if(ARG_DIR)
        set(dir ${dir}/${ARG_DIR})
    endif()
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${dir})
    file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.h)
    taskrack_check_layer_order(${folder} ${ARG_DEPS})
    add_library(taskrack_${name} STATIC ${sources})
    taskrack_publish_headers(taskrack_${name} ${folder})
    target_link_libraries(taskrack_${name} PUBLIC ${ARG_DEPS})
    set_target_properties(taskrack_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)

    if(TASKRACK_TESTS AND EXISTS ${dir}/tests)
        file(GLOB test_sources CONFIGURE_DEPENDS ${dir}/tests/*.cpp ${dir}/tests/*.h)
        if(test_sources)
            add_executable(${name}_tests ${test_sources})
            taskrack_publish_headers(${name}_tests ${folder}/tests PRIVATE)
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
    set(libraries taskrack_core taskrack_platform_linux)
    foreach(layer codex claude input panel quicktask voice app)
        if(TARGET taskrack_${layer})
            list(APPEND libraries taskrack_${layer})
        endif()
    endforeach()
    set(${out} ${libraries} PARENT_SCOPE)
endfunction()
