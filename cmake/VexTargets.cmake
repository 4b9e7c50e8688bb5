# How the library, its tests and its fuzz targets are compiled: targets, not global flags.

add_library(vex_warnings INTERFACE)
target_compile_options(vex_warnings INTERFACE -Wall -Wextra -Wshadow -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>
    $<$<BOOL:${VEX_WERROR}>:-Werror>)

# A link-time reference that --wrap redirects must keep its plain name, so instrumented and test builds
# set neither _FORTIFY_SOURCE, _FILE_OFFSET_BITS nor LTO.
add_library(vex_sanitize INTERFACE)
if(VEX_SANITIZE)
    target_compile_options(vex_sanitize INTERFACE -fsanitize=${VEX_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(vex_sanitize INTERFACE -fsanitize=${VEX_SANITIZE})
    if(VEX_SANITIZE MATCHES thread)
        target_compile_definitions(vex_sanitize INTERFACE VEX_TSAN=1)
    endif()
    if(VEX_SANITIZE MATCHES address)
        target_compile_definitions(vex_sanitize INTERFACE VEX_ASAN=1)
    endif()
endif()

function(vex_configure_library target)
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON
        VERIFY_INTERFACE_HEADER_SETS ON)
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
    target_link_libraries(${target}
        PUBLIC OpenSSL::Crypto Threads::Threads
        PRIVATE ZLIB::ZLIB CURL::libcurl SQLite::SQLite3 ${JANSSON_LIBRARY} ${LZO_LIBRARY}
                $<BUILD_INTERFACE:vex_warnings> $<BUILD_INTERFACE:vex_sanitize>)
    target_include_directories(${target} PRIVATE ${LZO_INCLUDE_DIR} ${JANSSON_INCLUDE_DIR})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL SHARED_LIBRARY)
        target_link_options(${target} PRIVATE
            -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/libvex.map -Wl,--no-undefined)
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/libvex.map)
    endif()
endfunction()

# vex_sources(family.cc ... HEADERS family.h ...): what a family adds to the library.
function(vex_sources)
    cmake_parse_arguments(ARG "" "" "HEADERS" ${ARGN})
    list(TRANSFORM ARG_UNPARSED_ARGUMENTS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    target_sources(vex PRIVATE ${ARG_UNPARSED_ARGUMENTS})
    if(ARG_HEADERS)
        list(TRANSFORM ARG_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/include/vex/)
        target_sources(vex PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/include
            FILES ${ARG_HEADERS})
    endif()
endfunction()

# vex_add_test(name SOURCES a_test.cc ... [WRAP call ...] [LIBS ...] [TIMEOUT seconds])
# builds one GoogleTest program. WRAP names calls that it redirects to functions of its own, besides those that FaultScope
# can make fail in all of them; that needs the static library, so such programs are left out of shared builds.
function(vex_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;WRAP;LIBS" ${ARGN})
    if(BUILD_SHARED_LIBS)
        return()
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE vex_test_support vex::vex vex_warnings vex_sanitize ${ARG_LIBS})
    foreach(call ${ARG_WRAP})
        target_link_options(${name} PRIVATE -Wl,--wrap=${call})
    endforeach()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "LC_ALL=C")
endfunction()

# vex_add_fuzz(name source.cc): a libFuzzer target where the compiler is clang; elsewhere a program that replays
# fuzz/corpus/<name> as a test.
function(vex_add_fuzz name source)
    if(BUILD_SHARED_LIBS)
        return()
    endif()
    add_executable(fuzz_${name} ${source})
    target_include_directories(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(fuzz_${name} PRIVATE vex::vex vex_warnings vex_sanitize)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    else()
        target_sources(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay.cc)
        if(VEX_BUILD_TESTS)
            add_test(NAME fuzz_${name} COMMAND fuzz_${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
            set_tests_properties(fuzz_${name} PROPERTIES TIMEOUT 120)
        endif()
    endif()
endfunction()

# vex_add_bench(name SOURCES a.cc ... [LIBS ...])
function(vex_add_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;INCLUDES" ${ARGN})
    add_executable(bench_${name} ${ARG_SOURCES})
    target_include_directories(bench_${name} PRIVATE ${PROJECT_SOURCE_DIR}/bench ${ARG_INCLUDES})
    target_link_libraries(bench_${name} PRIVATE vex::vex vex_warnings ${ARG_LIBS})
endfunction()

# vex_install_command(target name): installs a program with its manual man/<name>.1 and the completions in
# completions/ (<name>.bash, _<name>, <name>.fish), and puts all of them under test (tests/install).
function(vex_install_command target name)
    install(TARGETS ${target} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/man/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    set(completions ${PROJECT_SOURCE_DIR}/completions)
    # zsh reads packages' functions from another folder than those that an administrator has installed
    set(zsh site-functions)
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(zsh vendor-completions)
    endif()
    install(FILES ${completions}/${name}.bash RENAME ${name} COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
    install(FILES ${completions}/_${name} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/${zsh} COMPONENT tools)
    install(FILES ${completions}/${name}.fish COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d)
    set_property(GLOBAL APPEND PROPERTY VEX_COMMANDS ${name}=$<TARGET_FILE:${target}>)
endfunction()
