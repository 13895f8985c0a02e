# The helpers that make every target of the project, so that flags and the
# folder layout are stated once.

# Language level, include roots and warnings of our own code.
add_library(mktfs_flags INTERFACE)
target_compile_features(mktfs_flags INTERFACE cxx_std_20)
target_include_directories(mktfs_flags INTERFACE ${PROJECT_SOURCE_DIR}/lib ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(mktfs_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(
    mktfs_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 $<$<BOOL:${MKTFS_WERROR}>:-Werror>
                          -fno-strict-aliasing)
# A program that is given away does not say where it was built.
add_compile_options(
    "$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_BINARY_DIR}/=;-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>")

# mktfs_library(NAME SOURCES file... [DEPENDS target...] [LINKS target...])
# A static library of this folder.  DEPENDS names our own libraries: it is the
# allowed direction of includes.  LINKS names libraries from outside.
function(mktfs_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS;LINKS" ${ARGN})
    add_library(${name} STATIC ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE $<BUILD_INTERFACE:mktfs_flags> ${arg_LINKS})
endfunction()

# mktfs_test(NAME SOURCES file... DEPENDS target...)
# A GoogleTest program whose cases ctest runs one by one.
function(mktfs_test name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_DEPENDS} mktfs_flags GTest::gmock GTest::gtest_main
                                          Threads::Threads)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 120 DISCOVERY_TIMEOUT 60)
endfunction()

# mktfs_fuzz(NAME SOURCES file... DEPENDS target...)
# A libFuzzer target; clang only.
function(mktfs_fuzz name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_DEPENDS} mktfs_flags)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
