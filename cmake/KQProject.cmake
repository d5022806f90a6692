# What every target of the project shares: the language, the warnings and one macro per kind of target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# A list's header doubles as a node and narrow words alias wide ones; both are part of the interface.
add_compile_options(-Wall -Wextra -Wshadow -fno-strict-aliasing)
if(KQ_WERROR)
  add_compile_options(-Werror)
endif()
if(WIN32)
  add_compile_definitions(UNICODE _UNICODE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
endif()

# Compiled again only what changed, across trees, where ccache is there.
find_program(KQ_CCACHE ccache)
if(KQ_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KQ_CCACHE})
endif()

# Where the tree's own library is found: beside the program.
if(NOT WIN32)
  set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
endif()

# Where format modules are installed.
set(KQ_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/kqlib/modules)

# kq_module(name file...): a format module in a file of its own, bin/modules/name.ifm.
function(kq_module name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE KQLib)
  set_target_properties(${name} PROPERTIES
    PREFIX "" SUFFIX ".ifm" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/modules)
endfunction()
