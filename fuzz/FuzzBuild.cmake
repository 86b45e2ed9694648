# Initial cache of the fuzzing build (cmake -C fuzz/FuzzBuild.cmake): clang, every object
# instrumented for libFuzzer's coverage and under AddressSanitizer and UndefinedBehaviorSanitizer.
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "")
set(CMAKE_CXX_FLAGS
    "-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
    CACHE STRING "")
set(CMAKE_EXE_LINKER_FLAGS "-fsanitize=address,undefined" CACHE STRING "")
set(PV_BUILD_FUZZ ON CACHE BOOL "")
set(PV_BUILD_TESTS OFF CACHE BOOL "")
set(PV_BUILD_BENCH OFF CACHE BOOL "")
set(PV_BUILD_APP OFF CACHE BOOL "")
