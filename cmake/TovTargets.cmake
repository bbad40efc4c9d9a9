# How this project's targets are made: one set of options, and one function for each kind of target.

add_library(tov_options INTERFACE)
target_compile_features(tov_options INTERFACE cxx_std_20)
target_compile_options(tov_options INTERFACE -Wall -Wextra)
# One result on every processor: Arm has fused multiply-adds, which round once where others round twice.
target_compile_options(tov_options INTERFACE -ffp-contract=off)
target_compile_definitions(tov_options INTERFACE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_FOREACH)
if(TOV_SANITIZE)
    target_compile_options(tov_options INTERFACE -fsanitize=${TOV_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(tov_options INTERFACE -fsanitize=${TOV_SANITIZE})
    if(TOV_SANITIZE MATCHES "fuzzer")
        # Every branch that is linked costs time in every execution; so do the operands of comparisons, for which there
        # are dictionaries.
        target_compile_options(tov_options INTERFACE -ffunction-sections -fno-sanitize-coverage=trace-cmp)
        target_link_options(tov_options INTERFACE -Wl,--gc-sections)
    endif()
    # Assertions of Qt's containers and of the standard library's are checked as well.
    target_compile_definitions(tov_options INTERFACE QT_FORCE_ASSERTS _GLIBCXX_ASSERTIONS)
endif()
# Packets, files and descriptions are untrusted: a mistake in reading them ends the process instead of giving it away.
# .ci/check-hardening looks for these in what was built.
if(TOV_HARDEN)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    target_compile_options(tov_options INTERFACE -fstack-protector-strong -fstack-clash-protection
                           -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
        target_compile_options(tov_options INTERFACE -fcf-protection)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
        target_compile_options(tov_options INTERFACE -mbranch-protection=standard)
    endif()
    target_link_options(tov_options INTERFACE -Wl,-z,relro,-z,now)
endif()

function(_tov_common target)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF AUTOMOC ON AUTOUIC ON AUTORCC ON
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${target} PRIVATE tov_options)
endfunction()

# tov_add_folder(target SOURCES ... PUBLIC libs... PRIVATE libs...)
# A static library of one application folder; its headers are reached by their bare names.
function(tov_add_folder target)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    _tov_common(${target})
    target_include_directories(${target} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
endfunction()

# tov_add_platform(target SOURCES ... PUBLIC libs... PRIVATE libs...)
# A shared library behind one of the interfaces in platform/*.h.
function(tov_add_platform target)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(${target} SHARED ${ARG_SOURCES})
    _tov_common(${target})
    set_target_properties(${target} PROPERTIES
        LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib"
        INSTALL_RPATH "$ORIGIN")
    target_link_libraries(${target} PUBLIC tov_platform_headers ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
    install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tovscope)
endfunction()

# Builds the tests that also run under ThreadSanitizer.
add_custom_target(tov_engine_tests)

# tov_add_test(name SOURCES ... LIBS ... [LABELS ...] [TIMEOUT seconds] [GUI] [NETNS] [XVFB])
# GUI: a main with a QApplication, offscreen. NETNS: runs in a network namespace of its own with loopback up.
# XVFB: runs under an X server of its own with a window manager.
# Labels: unit, gui, net, slow, engine (the engine tests also run under ThreadSanitizer).
function(tov_add_test name)
    cmake_parse_arguments(ARG "GUI;NETNS;XVFB" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    _tov_common(${name})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} tov_test_support)
    if(ARG_GUI OR ARG_XVFB)
        target_link_libraries(${name} PRIVATE tov_test_gui_main)
    else()
        target_link_libraries(${name} PRIVATE tov_test_main)
    endif()
    set(command $<TARGET_FILE:${name}>)
    if(ARG_XVFB)
        set(command "${PROJECT_SOURCE_DIR}/tests/support/with-xvfb" ${command})
    endif()
    if(ARG_NETNS)
        set(command "${PROJECT_SOURCE_DIR}/tests/support/in-netns" ${command})
    endif()
    add_test(NAME ${name} COMMAND ${command})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 600)
    endif()
    math(EXPR limit "${ARG_TIMEOUT} - 20") # then it says itself where it hangs
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    if(engine IN_LIST ARG_LABELS)
        add_dependencies(tov_engine_tests ${name})
    endif()
    set(home "${PROJECT_BINARY_DIR}/test-home/${name}")
    file(MAKE_DIRECTORY "${home}")
    file(CHMOD "${home}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE) # it is the runtime folder as well
    set(races tsan.supp)
    if(ARG_NETNS AND NOT ARG_GUI AND NOT ARG_XVFB)
        set(races tsan-glib.supp)
    endif()
    set(environment "HOME=${home}" "XDG_CONFIG_HOME=${home}/.config" "XDG_RUNTIME_DIR=${home}" "TZ=UTC"
        "LC_ALL=C.UTF-8" "TOV_CAMERA_INTERFACES=sim" "TOV_TEST_LIMIT=${limit}"
        "ASAN_OPTIONS=detect_leaks=1" "UBSAN_OPTIONS=print_stacktrace=1"
        "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp:print_suppressions=0"
        "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/tests/support/${races}")
    if(ARG_XVFB)
        list(APPEND environment "QT_QPA_PLATFORM=xcb")
    else()
        list(APPEND environment "QT_QPA_PLATFORM=offscreen")
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT}
                         ENVIRONMENT "${environment}")
    if(ARG_NETNS)
        # No frame may be lost at the fake camera's top rate: two processors, its own and ours.
        set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 PROCESSORS 2)
    endif()
endfunction()

# tov_add_bench(name SOURCES ... LIBS ...)
function(tov_add_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    _tov_common(${name})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bench")
endfunction()
