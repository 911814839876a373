# Every library folder is one component: an OBJECT library whose objects end up in the
# shared library `kappar`. Platform components keep default visibility (they stand in for the
# product's sibling libraries, whose symbols the host sees); the library's own components are
# compiled with hidden visibility and export through KAPPAR_API.

set_property(GLOBAL PROPERTY KAPPAR_COMPONENTS "")
set_property(GLOBAL PROPERTY KAPPAR_INCLUDE_DIRS "")

function(kappar_warnings target)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror
            -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wno-unused-parameter)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # GCC 12 reports std::string appends as overlapping copies at -O2 (a known false
        # positive of -Wrestrict in libstdc++ headers).
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()

# kappar_component(NAME <name> DIR <dir> [PLATFORM] [INCLUDE <dirs...>])
# Sources: every .cpp under <dir> (recursively), except tests.
function(kappar_component)
    cmake_parse_arguments(KC "PLATFORM" "NAME;DIR" "INCLUDE" ${ARGN})
    file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${KC_DIR}/*.cpp)
    if(NOT srcs)
        set(srcs ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
    endif()
    add_library(${KC_NAME} OBJECT ${srcs})
    kappar_warnings(${KC_NAME})
    target_include_directories(${KC_NAME} PUBLIC ${KC_INCLUDE} ${PROJECT_SOURCE_DIR}/include
        ${PROJECT_BINARY_DIR}/include)
    get_property(incs GLOBAL PROPERTY KAPPAR_INCLUDE_DIRS)
    target_include_directories(${KC_NAME} PUBLIC ${incs})
    if(NOT KC_PLATFORM)
        set_target_properties(${KC_NAME} PROPERTIES CXX_VISIBILITY_PRESET hidden
            VISIBILITY_INLINES_HIDDEN ON)
        target_compile_definitions(${KC_NAME} PRIVATE kappar_EXPORTS)
    endif()
    set_property(GLOBAL APPEND PROPERTY KAPPAR_COMPONENTS ${KC_NAME})
    set_property(GLOBAL APPEND PROPERTY KAPPAR_INCLUDE_DIRS ${KC_INCLUDE})
endfunction()
