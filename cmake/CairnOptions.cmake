# Compile options of the whole project: one language level, one set of warnings, one way to
# switch a sanitizer on. Include once, from the top.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_program(CAIRN_CCACHE ccache)
if(CAIRN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CAIRN_CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# No path of the building machine in the objects: __FILE__ reads "Brisk/SlotTable.cpp".
add_compile_options(-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/=
                    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Unique symbols would pin the shared library in memory: it could not be unloaded.
  add_compile_options(-fno-gnu-unique -fpch-preprocess)
endif()

if(CAIRN_SANITIZE)
  add_compile_options(-fsanitize=${CAIRN_SANITIZE} -fno-omit-frame-pointer -g1
                      -fno-sanitize-recover=all)
  if(CAIRN_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # ThreadSanitizer does not see fences. It need not: in these builds shared bytes are copied as
    # relaxed words, and every link between them is a release store with an acquire load.
    add_compile_options(-Wno-tsan)
  endif()
  if(CAIRN_SANITIZE MATCHES undefined AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With its checks for null, g++ no longer takes the address of an object for a constant that is
    # not null, and the type records are constants full of such comparisons. A null that is used
    # still ends the program.
    add_compile_options(-fno-sanitize=null,nonnull-attribute,returns-nonnull-attribute)
  endif()
  add_link_options(-fsanitize=${CAIRN_SANITIZE})
  add_compile_definitions(CAIRN_SANITIZED=1)
endif()

if(CAIRN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(CAIRN_COVERAGE)
  # Not optimised: each condition keeps its branches, each inlined function its lines.
  add_compile_options(--coverage -fprofile-update=atomic -O0 -g1)
  add_link_options(--coverage)
  add_compile_definitions(CAIRN_COVERAGE=1)
endif()

# The standard headers of every translation unit of the two libraries.
set(CAIRN_PRECOMPILED
    <algorithm> <array> <atomic> <bit> <cerrno> <chrono> <cstddef> <cstdint> <cstdio> <cstdlib>
    <cstring> <functional> <map> <memory> <optional> <ostream> <span> <sstream> <string>
    <string_view> <type_traits> <typeinfo> <utility> <vector> <fmt/format.h>)
