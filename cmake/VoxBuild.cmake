# How every target of the project is compiled, and the few functions that declare targets.

find_program(VOX_CCACHE ccache)
if(VOX_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${VOX_CCACHE})
endif()

# Where several sources are compiled as one, what they name in their anonymous namespaces must differ; most of the time
# that a small source takes goes into headers, so many together take little more than a few.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC takes an included source for a header, and its anonymous namespace for another one in every file.
  add_compile_options(-Wno-subobject-linkage)
endif()

# vox_options carries what all code here is compiled with. Contraction of a*b+c into one rounding would change the
# bytes of rescaled lines from machine to machine, so it is off everywhere.
add_library(vox_options INTERFACE)
target_compile_options(vox_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
  -Wcast-align -Wcast-qual -Wimplicit-fallthrough -Wunused -Wformat=2 -Werror
  -ffp-contract=off)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Kept pages pass 2 GiB; 64-bit hosts have no other size of offset.
  target_compile_definitions(vox_options INTERFACE _FILE_OFFSET_BITS=64)
endif()
target_include_directories(vox_options INTERFACE ${CMAKE_BINARY_DIR}/include ${CMAKE_SOURCE_DIR})
target_link_libraries(vox_options INTERFACE Threads::Threads)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(vox_options INTERFACE -Wthread-safety)
endif()

if(VOX_SANITIZE STREQUAL "address")
  set(_san -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  list(APPEND _san -fsanitize=float-cast-overflow)
elseif(VOX_SANITIZE STREQUAL "thread")
  set(_san -fsanitize=thread -fno-omit-frame-pointer)
endif()
if(VOX_BUILD_FUZZERS)
  set(_san -fsanitize=address,undefined,float-cast-overflow,fuzzer-no-link -fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()
if(_san)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # GCC's flow analysis loses track in instrumented code of its own standard library.
    list(APPEND _san -Wno-maybe-uninitialized)
  endif()
  target_compile_options(vox_options INTERFACE ${_san} -g1)
  target_link_options(vox_options INTERFACE ${_san})
endif()

# vox_stage_headers lays the source folders out under build/include/vox as they are installed, so that one spelling,
# "vox/drivers/TwainImageIF.h", is right in the tree and for users of the installed library.
function(vox_stage_headers)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include/vox)
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/Source/drivers ${CMAKE_BINARY_DIR}/include/vox/drivers SYMBOLIC)
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/platform ${CMAKE_BINARY_DIR}/include/vox/platform SYMBOLIC)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}/Source ${CMAKE_SOURCE_DIR}/Source/*.h)
  foreach(header IN LISTS headers)
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/Source/${header} ${CMAKE_BINARY_DIR}/include/vox/${header} SYMBOLIC)
  endforeach()
endfunction()

# vox_stage_resources lays the resource tables out below the build folder as they are installed, so that a library finds
# them from where it lies.
function(vox_stage_resources)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/share)
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/Resources ${CMAKE_BINARY_DIR}/share/vox SYMBOLIC)
endfunction()

# vox_precompile_test(TARGET): with VOX_PRECOMPILE, the sources of the test program TARGET find GoogleTest and the headers
# of the standard library that nearly every file has read already. The presets all ask for it; a build without it (the
# fuzz preset's way of compiling) still finds a file that lacks an include.
function(vox_precompile_test target)
  if(NOT VOX_PRECOMPILE)
    return()
  endif()
  if(NOT TARGET vox_precompiled_test)
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/precompiled_test.cpp CONTENT "int main() {}\n")
    add_executable(vox_precompiled_test ${CMAKE_BINARY_DIR}/precompiled_test.cpp)
    target_link_libraries(vox_precompiled_test PRIVATE vox_options GTest::gmock)
    target_compile_options(vox_precompiled_test PRIVATE ${VOX_TEST_FLAGS})
    # Without its time a header that was read before is the same for ccache in a second build.
    target_compile_options(vox_precompiled_test PRIVATE $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
    target_precompile_headers(vox_precompiled_test PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <atomic>
      <chrono> <cstdint> <cstring> <functional> <map> <memory> <optional> <span> <string> <thread> <vector>)
  endif()
  target_precompile_headers(${target} REUSE_FROM vox_precompiled_test)
endfunction()

# vox_add_test(NAME SOURCES... [LIBS ...] [THREADED] [SERIAL] [TIMEOUT s] [ENVIRONMENT NAME=VALUE...]): one GoogleTest
# program; each case is a ctest. THREADED programs are also run under ThreadSanitizer; the thread build leaves the others
# out.
function(vox_add_test name)
  cmake_parse_arguments(arg "THREADED;SERIAL" "TIMEOUT" "SOURCES;LIBS;ARGS;ENVIRONMENT" ${ARGN})
  if(VOX_SANITIZE STREQUAL "thread" AND NOT arg_THREADED)
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE vox_options ${arg_LIBS} GTest::gmock GTest::gtest_main)
  target_compile_options(${name} PRIVATE ${VOX_TEST_FLAGS})
  vox_precompile_test(${name})
  set(properties TIMEOUT 120)
  if(arg_TIMEOUT)
    set(properties TIMEOUT ${arg_TIMEOUT})
  endif()
  if(arg_SERIAL)
    list(APPEND properties RUN_SERIAL ON)
  endif()
  if(arg_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT "${arg_ENVIRONMENT}")
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${name}/" DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()

# vox_skip_without_bus(NAME [THREADED]): stands in ctest, as skipped, for the program NAME, which vox_add_test cannot
# declare where there is no emulated USB bus.
function(vox_skip_without_bus name)
  cmake_parse_arguments(arg "THREADED" "" "" ${ARGN})
  if(VOX_SANITIZE STREQUAL "thread" AND NOT arg_THREADED)
    return()
  endif()
  set(why "skipped: umockdev is not installed (Debian: libumockdev-dev, umockdev), so there is no emulated USB bus")
  message(WARNING "${name}: ${why}")
  add_test(NAME ${name}/SkippedWithoutUmockdev COMMAND ${CMAKE_COMMAND} -E echo "${why}")
  set_tests_properties(${name}/SkippedWithoutUmockdev PROPERTIES SKIP_REGULAR_EXPRESSION "skipped: ")
endfunction()

# vox_add_fuzzer(NAME SOURCE [LIBS ...]): with VOX_BUILD_FUZZERS a libFuzzer program; otherwise the same source with a
# plain main that replays fuzz/corpus/NAME as one ctest.
function(vox_add_fuzzer name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  if(VOX_SANITIZE STREQUAL "thread")
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE vox_options ${arg_LIBS})
  if(VOX_BUILD_FUZZERS)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    if(NOT TARGET vox_replay)
      add_library(vox_replay OBJECT ${CMAKE_SOURCE_DIR}/fuzz/ReplayMain.cpp)
      target_link_libraries(vox_replay PRIVATE vox_options)
    endif()
    target_link_libraries(${name} PRIVATE vox_replay)
    target_compile_options(${name} PRIVATE ${VOX_TEST_FLAGS})
  endif()
  if(VOX_BUILD_FUZZERS)
    add_test(NAME fuzz/${name} COMMAND ${name} -runs=0 ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
  else()
    add_test(NAME fuzz/${name} COMMAND ${name} ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
  endif()
  set_tests_properties(fuzz/${name} PROPERTIES TIMEOUT 120)
endfunction()

# vox_add_bench(NAME SOURCES... [LIBS ...]): one Google Benchmark program.
function(vox_add_bench name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE vox_options ${arg_LIBS} benchmark::benchmark)
endfunction()

# vox_add_library declares the library's targets; the folders add their sources. vox_jbig_objs is the codec alone,
# vox_objs the rest. From them come Vox::vox (shared, installed), vox_static for tests that look inside, and vox_jbig
# for the virtual device.
function(vox_add_library)
  add_library(vox_jbig_objs OBJECT)
  if(VOX_SANITIZE)
    target_compile_options(vox_jbig_objs PRIVATE -O2)  # what tests of the codec win is more than this costs
  else()
    # Its speed is measured, so it is compiled as it is for packages.
    set_target_properties(vox_jbig_objs PROPERTIES UNITY_BUILD OFF)
  endif()
  add_library(vox_objs OBJECT)
  target_link_libraries(vox_jbig_objs PUBLIC vox_options)
  target_link_libraries(vox_objs PUBLIC vox_options PRIVATE PkgConfig::PLIST PkgConfig::HWY)

  add_library(vox SHARED $<TARGET_OBJECTS:vox_jbig_objs> $<TARGET_OBJECTS:vox_objs>)
  add_library(Vox::vox ALIAS vox)
  set_target_properties(vox PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${CMAKE_SOURCE_DIR}/Source/libvox.map)
  target_link_options(vox PRIVATE LINKER:--version-script,${CMAKE_SOURCE_DIR}/Source/libvox.map)
  target_link_libraries(vox PRIVATE $<BUILD_INTERFACE:vox_options> $<BUILD_INTERFACE:PkgConfig::PLIST>
                            $<BUILD_INTERFACE:PkgConfig::LIBUSB> $<BUILD_INTERFACE:PkgConfig::HWY>)
  target_compile_features(vox INTERFACE cxx_std_20)
  target_include_directories(vox INTERFACE $<BUILD_INTERFACE:${CMAKE_BINARY_DIR}/include>
                                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

  add_library(vox_jbig STATIC $<TARGET_OBJECTS:vox_jbig_objs>)
  target_link_libraries(vox_jbig PUBLIC vox_options)
  add_library(vox_static STATIC $<TARGET_OBJECTS:vox_objs>)
  target_link_libraries(vox_static PUBLIC vox_options vox_jbig PRIVATE PkgConfig::PLIST PkgConfig::LIBUSB PkgConfig::HWY)
endfunction()

# vox_bus_preload(VARIABLE): what a process on the emulated USB bus has preloaded; the run-time library of a sanitizer
# comes first, where that is one of its own.
function(vox_bus_preload variable)
  set(preload libumockdev-preload.so.0)
  if(VOX_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set(runtime libasan.so)
    if(VOX_SANITIZE STREQUAL "thread")
      set(runtime libtsan.so)
    endif()
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime}
                    OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(preload "${runtime}:${preload}")
  endif()
  set(${variable} "${preload}" PARENT_SCOPE)
endfunction()
