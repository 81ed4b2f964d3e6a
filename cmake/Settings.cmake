# What every target of the project is built with: `ostrand_settings` is linked privately by all.

set(OSTRAND_SANITIZER "" CACHE STRING "Sanitizer to build with: address, thread or empty")

add_library(ostrand_settings INTERFACE)
target_include_directories(ostrand_settings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(ostrand_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Woverloaded-virtual -Wsuggest-override -Wformat=2 -Wextra-semi -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(ostrand_settings INTERFACE -Wduplicated-cond -Wlogical-op)
endif()
target_link_libraries(ostrand_settings INTERFACE Threads::Threads)

# Random inputs for what reads the texts of strangers: needs clang, see tests/fuzz.
option(OSTRAND_FUZZERS "Build the fuzz targets" OFF)
if(OSTRAND_FUZZERS)
    set(OSTRAND_SANITIZER address)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

option(OSTRAND_CRASH_POINTS "Let tests end the program at named steps; never for use" OFF)
if(OSTRAND_CRASH_POINTS)
    add_compile_definitions(OSTRAND_CRASH_POINTS)
endif()

if(NOT OSTRAND_SANITIZER STREQUAL "" AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # With the checks built in, g++ 12 takes values of its own library for uninitialised.
    add_compile_options(-Wno-maybe-uninitialized)
endif()
if(OSTRAND_SANITIZER STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    # UBSan also checks conversions that are undefined only out of range.
    add_compile_options(-fsanitize=float-cast-overflow,float-divide-by-zero)
    add_link_options(-fsanitize=address,undefined)
elseif(OSTRAND_SANITIZER STREQUAL "thread")
    # Asio uses atomic_thread_fence, which g++ warns about under this sanitizer.
    add_compile_options(-fsanitize=thread -Wno-tsan)
    add_link_options(-fsanitize=thread)
elseif(NOT OSTRAND_SANITIZER STREQUAL "")
    message(FATAL_ERROR "OSTRAND_SANITIZER is address, thread or empty")
endif()
