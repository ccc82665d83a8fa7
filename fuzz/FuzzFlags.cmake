# Compiler flags of the fuzz build, included by the top-level CMakeLists.txt
# before any target when VX_FUZZ is on. Every library the fuzz targets link is
# compiled with libFuzzer's coverage instrumentation and with AddressSanitizer
# and UndefinedBehaviorSanitizer, so that a fault deep in the reader is seen
# where it happens. Only the fuzz targets themselves link libFuzzer's main.
#
#   CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DVX_FUZZ=ON -DVX_BUILD_TESTS=OFF
#   cmake --build build-fuzz --target fuzzers -j2

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VX_FUZZ needs clang (libFuzzer): configure a separate build tree with "
                        "CC=clang CXX=clang++ -DVX_FUZZ=ON")
endif()

add_compile_options(-fsanitize=fuzzer-no-link,address,undefined
                    -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
add_link_options(-fsanitize=address,undefined)
