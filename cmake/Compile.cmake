# The options of all compilations of the tree: each target links corvane_options privately.
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(CCACHE ccache)
if(CCACHE)    # paths in the tree are relative, so that all checkouts share the cache
  set(CORVANE_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CORVANE_LAUNCHER})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CORVANE_LAUNCHER})
endif()

add_library(corvane_options INTERFACE)
file(RELATIVE_PATH CORVANE_SOURCE_FROM_BUILD ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})
target_compile_options(corvane_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wno-unknown-pragmas
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${CORVANE_SOURCE_FROM_BUILD}=)    # installed files name no folder of the builder
target_link_options(corvane_options INTERFACE -Wl,-z,relro -Wl,-z,now)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(corvane_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
else()
  target_compile_options(corvane_options INTERFACE -Wno-attributes -Wno-restrict -ftrivial-auto-var-init=zero)    # clang 14 refuses the last
endif()
if(CORVANE_WERROR)
  target_compile_options(corvane_options INTERFACE -Werror)
endif()
if(CORVANE_SANITIZE)
  target_compile_options(corvane_options INTERFACE -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer -g1)
  if(NOT CORVANE_SANITIZE STREQUAL "thread")
    target_compile_options(corvane_options INTERFACE -fno-sanitize-recover=all)
  endif()
  target_link_options(corvane_options INTERFACE -fsanitize=${CORVANE_SANITIZE})
else()
  target_compile_options(corvane_options INTERFACE $<$<CONFIG:Release>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
  target_compile_definitions(corvane_options INTERFACE _GLIBCXX_ASSERTIONS)
endif()
if(CORVANE_FUZZ_INSTRUMENT)
  target_compile_options(corvane_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
