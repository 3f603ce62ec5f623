# The kinds of targets of this project. Each takes a folder and globs it, so that a new file needs no edit here. A
# missing or empty folder is an error, so that no file is skipped silently.

# brevant_glob(variable pattern...): the matching files, at least one for each pattern.
function(brevant_glob variable)
    set(all)
    foreach(pattern IN LISTS ARGN)
        file(GLOB files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${pattern})
        if(NOT files)
            message(FATAL_ERROR "No file matches ${pattern}: the folder was renamed or emptied, but is still listed here.")
        endif()
        list(APPEND all ${files})
    endforeach()
    set(${variable} ${all} PARENT_SCOPE)
endfunction()

# brevant_library(name folder dependency...): static library of the folder's sources without the entry point.
function(brevant_library name folder)
    brevant_glob(sources ${folder}/*.cpp)
    list(REMOVE_ITEM sources ${PROJECT_SOURCE_DIR}/src/agent/Brevant.cpp
                             ${PROJECT_SOURCE_DIR}/src/check/BrevantCheck.cpp)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC brevant_options ${ARGN})
    brevant_precompile(${name} common)
endfunction()

# brevant_program(name library source resource): console program with a wide entry point.
function(brevant_program name library source resource)
    add_executable(${name} ${source} ${resource})
    get_filename_component(folder ${resource} DIRECTORY)
    brevant_glob(manifests ${folder}/*.manifest)
    set_source_files_properties(${resource} PROPERTIES OBJECT_DEPENDS "${manifests}")
    target_link_libraries(${name} PRIVATE ${library})
    target_link_options(${name} PRIVATE -municode -mconsole)
    # The checked build is only for tests, which run the shipped programs.
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ${BREVANT_CHECKED})
endfunction()

# brevant_dll(name folder output-folder): NAME.dll without the "lib" prefix. The target NAME_objects has its objects,
# for tests of internal functions.
function(brevant_dll name folder output)
    brevant_glob(sources ${folder}/*.cpp)
    file(GLOB extras CONFIGURE_DEPENDS ${folder}/*.def ${folder}/*.rc)
    get_filename_component(target ${name} NAME)
    add_library(${target}_objects OBJECT ${sources})
    target_link_libraries(${target}_objects PUBLIC brevant_options)
    add_library(${target} SHARED $<TARGET_OBJECTS:${target}_objects> ${extras})
    target_link_libraries(${target} PRIVATE brevant_options brevant_system)
    set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX RUNTIME_OUTPUT_DIRECTORY ${output})
endfunction()

# brevant_unit_tests(library): the executable LIBRARY_tests of tests/unit/LIBRARY.
function(brevant_unit_tests library)
    brevant_glob(sources tests/unit/${library}/*.cpp)
    set(name ${library}_tests)
    add_executable(${name} ${sources})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    if(library STREQUAL "kzdbg")
        target_link_libraries(${name} PRIVATE KzDbg64_objects)
    else()
        target_link_libraries(${name} PRIVATE ${library})
    endif()
    target_link_libraries(${name} PRIVATE test_support GTest::gmock GTest::gtest_main)
    # Run-time checks only for the code under test; for the tests they would take a third of the compile time.
    set_target_properties(${name} PROPERTIES BREVANT_TESTS_ONLY ON)
    brevant_precompile(${name} common_tests <gmock/gmock.h>)
    if(NOT library STREQUAL "check")
        add_test(NAME unit.${library} COMMAND ${name} --gtest_brief=1 WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
        set_tests_properties(unit.${library} PROPERTIES TIMEOUT 300)
        return()
    endif()
    # It takes longer than all the others together: half of it at a time.
    foreach(half 0 1)
        add_test(NAME unit.check.${half} COMMAND ${name} --gtest_brief=1 WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
        set_tests_properties(unit.check.${half} PROPERTIES TIMEOUT 300 COST 20
            ENVIRONMENT "GTEST_TOTAL_SHARDS=2;GTEST_SHARD_INDEX=${half}")
    endforeach()
endfunction()

# brevant_standins(folder...): a recording DLL for each sub-folder, with its name, in bin/standins. The target
# "standins" builds all of them.
function(brevant_standins)
    list(TRANSFORM ARGN APPEND /* OUTPUT_VARIABLE patterns)
    brevant_glob(entries ${patterns})
    add_custom_target(standins)
    foreach(entry IN LISTS entries)
        if(IS_DIRECTORY ${entry})
            get_filename_component(name ${entry} NAME)
            # Target names must not hide the system library of the same name.
            cmake_path(RELATIVE_PATH entry BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
            brevant_dll(standin_${name} ${entry} ${kBinDir}/standins)
            set_target_properties(standin_${name} PROPERTIES OUTPUT_NAME ${name}
                ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/standins)
            target_link_options(standin_${name} PRIVATE $<$<CONFIG:Release>:-s>)
            if(NOT BREVANT_TESTS)
                set_target_properties(standin_${name} standin_${name}_objects PROPERTIES EXCLUDE_FROM_ALL ON)
            endif()
            add_dependencies(standins standin_${name})
        endif()
    endforeach()
endfunction()

# brevant_fuzz_tests(folder): the executable fuzz_tests, run once per test (a kind of input) with the folder's seeds.
set(BREVANT_VARIANTS 1000 CACHE STRING "Broken inputs of each kind that the fuzz tests try")
function(brevant_fuzz_tests folder)
    brevant_glob(sources ${folder}/*.cpp)
    brevant_glob(seeds ${folder}/seeds/*)
    add_executable(fuzz_tests ${sources})
    set_target_properties(fuzz_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    target_link_libraries(fuzz_tests PRIVATE check agent test_support GTest::gmock GTest::gtest)
    brevant_precompile(fuzz_tests common)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sources})
    foreach(source IN LISTS sources)
        file(STRINGS ${source} tests REGEX "^TEST")
        foreach(test IN LISTS tests)
            string(REGEX REPLACE ".*[(, ]([A-Za-z]+)\\)$" "\\1" kind ${test})
            add_test(NAME fuzz.${kind}
                COMMAND fuzz_tests --gtest_brief=1 --gtest_filter=*.${kind} ${PROJECT_SOURCE_DIR}/${folder}/seeds ${BREVANT_VARIANTS})
            set_tests_properties(fuzz.${kind} PROPERTIES TIMEOUT 1200)
        endforeach()
    endforeach()
endfunction()

# brevant_platform_trial(folder): WindowsTrial.exe, which a system test runs beside the shipped programs.
function(brevant_platform_trial folder)
    brevant_glob(sources ${folder}/*.cpp)
    add_executable(WindowsTrial ${sources})
    set_target_properties(WindowsTrial PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    target_link_libraries(WindowsTrial PRIVATE check_ready)
    brevant_precompile(WindowsTrial common)
    target_link_options(WindowsTrial PRIVATE -municode -mconsole)
endfunction()

# brevant_every_source_is_used(folder...): checks that each source below the folders belongs to a target or is a test of
# brevant_python_tests.
function(brevant_every_source_is_used)
    get_property(used GLOBAL PROPERTY brevant_python_files)
    foreach(directory ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/bench)
        get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
        foreach(target IN LISTS targets)
            get_target_property(sources ${target} SOURCES)
            foreach(source IN LISTS sources)
                cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${directory})
                list(APPEND used ${source})
            endforeach()
        endforeach()
    endforeach()
    foreach(folder IN LISTS ARGN)
        list(TRANSFORM kSourceEndings PREPEND ${PROJECT_SOURCE_DIR}/${folder}/*. OUTPUT_VARIABLE patterns)
        file(GLOB_RECURSE files CONFIGURE_DEPENDS ${patterns})
        foreach(file IN LISTS files)
            if(NOT file IN_LIST used)
                message(FATAL_ERROR "Nothing builds or runs ${file}: no target includes files with that name in that folder.")
            endif()
        endforeach()
    endforeach()
endfunction()
set(kSourceEndings c cc cpp cxx s S asm)

# brevant_python_tests(kind folder): each test_NAME.py runs as KIND.NAME with the shipped programs and the stand-ins of
# this build.
set(BREVANT_SHIPPED ${PROJECT_SOURCE_DIR}/build/release/bin CACHE PATH "Programs that system tests run")
function(brevant_python_tests kind folder)
    brevant_glob(files ${folder}/test_*.py)
    set_property(GLOBAL APPEND PROPERTY brevant_python_files ${files})
    foreach(file IN LISTS files)
        get_filename_component(module ${file} NAME_WE)
        string(REGEX REPLACE "^test_" "" name ${module})
        add_test(NAME ${kind}.${name}
            COMMAND ${Python3_EXECUTABLE} -B -m unittest -v ${module}
            WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
        set_tests_properties(${kind}.${name} PROPERTIES TIMEOUT 900 ENVIRONMENT
            "BREVANT_BIN=${BREVANT_SHIPPED};BREVANT_STANDINS=${kBinDir}/standins;PYTHONPATH=${PROJECT_SOURCE_DIR}/tools")
    endforeach()
endfunction()
