# Compiler settings that all of our targets share, and the two kinds of target there are.

add_library(brekka_options INTERFACE)
target_compile_definitions(brekka_options INTERFACE
    QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_NO_FOREACH QT_DEPRECATED_WARNINGS)
target_compile_options(brekka_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    $<$<BOOL:${BREKKA_WERROR}>:-Werror>)
# A library's generated code hangs together in one object; without this a program would carry every
# class of a library that it uses one of.
target_compile_options(brekka_options INTERFACE
    "$<$<CONFIG:Release>:-ffunction-sections;-fdata-sections>")
target_link_options(brekka_options INTERFACE $<$<CONFIG:Release>:-Wl,--gc-sections>)
# Wherever the sources lie, the programs are the same.
target_compile_options(brekka_options INTERFACE
    "$<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")
if(BREKKA_SANITIZE)
    target_compile_options(brekka_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(brekka_options INTERFACE -fsanitize=address,undefined)
endif()

# One library for each folder. Includes go by file name, and a folder's path is only known to the
# targets that link it, so an include against the direction of the arrows does not compile.
function(brekka_library name)
    add_library(${name} STATIC ${ARGN})
    set_target_properties(${name} PROPERTIES UNITY_BUILD ${BREKKA_UNITY} UNITY_BUILD_BATCH_SIZE 0)
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE brekka_options)
endfunction()

# What the tests find in their environment. On Windows they run with the platform that users have.
set(BREKKA_TEST_ENVIRONMENT
    QT_FORCE_STDERR_LOGGING=1
    LC_ALL=C.UTF-8
    XDG_CACHE_HOME=${CMAKE_BINARY_DIR}/test-cache
    LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp:print_suppressions=0
    UBSAN_OPTIONS=print_stacktrace=1)
if(NOT WIN32)
    list(APPEND BREKKA_TEST_ENVIRONMENT QT_QPA_PLATFORM=offscreen)
endif()

# A test program, run by ctest without a display; with ROWS each row of that function by itself.
#   brekka_test(tst_name [ROWS function] SOURCES file... LIBS target...)
function(brekka_test name)
    cmake_parse_arguments(ARG "" "ROWS" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE brekka_options ${ARG_LIBS} Qt5::Test)
    # Compiling one takes longer than running what is in it alone.
    target_compile_options(${name} PRIVATE -O0 -U_FORTIFY_SOURCE)
    if(ARG_ROWS)
        add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/rows.sh
            $<TARGET_FILE:${name}> ${ARG_ROWS} ${CMAKE_CROSSCOMPILING_EMULATOR})
    else()
        add_test(NAME ${name} COMMAND ${name})
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${BREKKA_TEST_ENVIRONMENT}")
endfunction()

# A script that tests the built programs from outside; their folder is its first argument.
#   brekka_script_test(name script argument...)
function(brekka_script_test name script)
    add_test(NAME ${name}
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/${script} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} ${ARGN})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600 ENVIRONMENT "${BREKKA_TEST_ENVIRONMENT}")
endfunction()

# A test program that makes no sense on this platform: ctest shows it as skipped, with the reason.
function(brekka_skipped_test name reason)
    add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo "SKIP   : ${name}: ${reason}")
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "SKIP   : ${name}: ")
endfunction()
