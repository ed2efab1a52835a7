# Flags that every target of the project shares, as the interface target `ostrel-flags`.

add_library(ostrel-flags INTERFACE)
target_compile_options(ostrel-flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wold-style-cast -Wimplicit-fallthrough -Werror
  -fno-omit-frame-pointer)
target_compile_definitions(ostrel-flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)

# A compiler cache where there is one: the presets, and several work trees, share what compiles alike.
find_program(OSTREL_CCACHE ccache)
if(OSTREL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${OSTREL_CCACHE})
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_link_options(-fuse-ld=lld)
endif()

if(OSTREL_SANITIZE)
  add_compile_options(-fsanitize=${OSTREL_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${OSTREL_SANITIZE})
endif()
