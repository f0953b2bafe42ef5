# What every target of the hub shares: language level, warnings, sanitizers, and the two ways to add a target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
find_package(Threads REQUIRED)

find_program(HUB_CCACHE ccache)
if(HUB_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${HUB_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${HUB_CCACHE})
endif()

set(HUB_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them; empty for none")

add_library(hub_options INTERFACE)
target_include_directories(hub_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(hub_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                       -Werror -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(hub_options INTERFACE -Wthread-safety -Wthread-safety-beta -Wno-thread-safety-negative)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 reports these two falsely inside its own library headers when it inlines.
  target_compile_options(hub_options INTERFACE -Wno-restrict -Wno-stringop-overflow)
endif()
if(HUB_SANITIZE)
  target_compile_options(hub_options INTERFACE -fsanitize=${HUB_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(hub_options INTERFACE -fsanitize=${HUB_SANITIZE})
  # Line numbers are all that the reports of sanitizers need.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(hub_options INTERFACE -Wno-tsan)
    set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1")
  else()
    set(CMAKE_CXX_FLAGS_DEBUG "-O1 -gline-tables-only")
  endif()
endif()

if(HUB_FUZZ)
  target_compile_options(hub_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

option(HUB_PRECOMPILE "Precompile the headers that a target names; off, the build shows that each source includes
  what it uses" ON)

# The headers that take longest to read, once for a target.
function(hub_precompile name)
  if(HUB_PRECOMPILE AND ARGN)
    list(TRANSFORM ARGN REPLACE "^([^<].*)$" "${CMAKE_SOURCE_DIR}/\\1")
    target_precompile_headers(${name} PRIVATE ${ARGN})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      target_compile_options(${name} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")  # for ccache
    endif()
  endif()
endfunction()

# hub_library(NAME folder-relative sources... LINK targets... PRECOMPILE headers...): one floor's library. Headers are
# included by their path from the root of the tree, so that an include shows the floor it reaches.
function(hub_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK;PRECOMPILE" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC hub_options Threads::Threads ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
  hub_precompile(${name} ${ARG_PRECOMPILE})
endfunction()

function(hub_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE hub_options ${ARG_LINK})
endfunction()

# hub_test(NAME SOURCES ... LINK ... [CONCURRENCY]): one test program. CONCURRENCY marks what ThreadSanitizer runs too.
function(hub_test name)
  cmake_parse_arguments(ARG "CONCURRENCY" "" "SOURCES;LINK;PRECOMPILE" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE hub_options ${ARG_LINK} hub_test_support hub_lock_order_check
                        GTest::gmock GTest::gtest_main)
  hub_precompile(${name} ${ARG_PRECOMPILE})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 600
    # Where TZ is not set, the C library frees and makes its name anew at each conversion, under a lock that no
    # sanitizer sees.
    ENVIRONMENT "TZ=:/etc/localtime;TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/Tests/tsan.supp:halt_on_error=1;ASAN_OPTIONS=detect_leaks=1")
  if(ARG_CONCURRENCY)
    set_tests_properties(${name} PROPERTIES LABELS concurrency)
    add_dependencies(concurrency_tests ${name})
  endif()
endfunction()

# All programs that ThreadSanitizer is to look at.
add_custom_target(concurrency_tests)
