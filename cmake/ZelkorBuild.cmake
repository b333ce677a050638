# How every target of this project is compiled, and the helpers that declare libraries, programs and tests.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
# What belongs to no other package belongs to the one of the daemon.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME daemon)

# Where CMAKE_UNITY_BUILD is on (the presets that are built from nothing), so many sources go through the compiler
# together: the headers of the libraries are most of what there is to compile. Sources of one target therefore have no
# two names alike, anonymous namespaces included.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Files of any size, and times beyond 2038: what the C library is asked for then is its 64-bit form. No library that
  # this system calls is handed a time_t, a timespec or an off_t: those would still be compiled for 32 bits.
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES 86)
    # Numbers come out as on 64 bits: the old floating-point unit holds intermediate results in more digits than the
    # type has, and rounds twice.
    add_compile_options(-msse2 -mfpmath=sse)
  endif()
endif()

find_program(ZELKOR_CCACHE ccache)
if(ZELKOR_CCACHE)
  # Precompiled headers are cached, too: their own content counts, not the macros and times that went into them.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${ZELKOR_CCACHE})
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()

# Flags that belong to this project's own sources only; never handed on to whoever links a library.
function(zelkor_compile_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 warns of its own std::string operator+ (GCC bug 105651).
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # A source's own types count as a header's there, which could be used in more than one object.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    # Such sources fill the compiler's memory: looking for what is free in it before there is much takes a twelfth of
    # its time.
    target_compile_options(${target} PRIVATE --param=ggc-min-heapsize=524288)
  endif()
  if(ZELKOR_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(ZELKOR_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${ZELKOR_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${ZELKOR_SANITIZE})
    if(ZELKOR_SANITIZE MATCHES undefined)
      # What finds an object to be none of its type goes by UBSAN_OPTIONS=halt_on_error, which the test presets set: it
      # asks for a pipe each time, and without a free descriptor takes every object for none.
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined -fsanitize-recover=vptr)
    endif()
  endif()
  # What is shipped is hardened: checked copies, guarded stacks and returns, nothing writable that the loader has resolved.
  set(is_shipped $<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>)
  target_compile_options(${target} PRIVATE $<${is_shipped}:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    -fstack-protector-strong -fstack-clash-protection -Wformat -Werror=format-security>)
  target_link_options(${target} PRIVATE $<${is_shipped}:-Wl,-z,relro -Wl,-z,now>)
  # Trace records name their source: framework and library sources by their path below the root, sources of the
  # daemon by their bare name.
  # The relative forms are what the compiler sees where ccache is told to make paths relative.
  file(RELATIVE_PATH from_build ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
  foreach(root ${from_build} ${CMAKE_SOURCE_DIR}/)
    target_compile_options(${target} PRIVATE -fmacro-prefix-map=${root}= -fmacro-prefix-map=${root}daemon/=)
  endforeach()
endfunction()

# zelkor_library(NAME SOURCES a.cpp ... [PUBLIC lib ...] [PRIVATE lib ...])
function(zelkor_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  zelkor_compile_options(${name})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/core/shared ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
endfunction()

# zelkor_program(NAME SOURCES a.cpp ... LIBS lib ...)
function(zelkor_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  zelkor_compile_options(${name})
  target_link_libraries(${name} PRIVATE ${arg_LIBS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/core/shared ${CMAKE_SOURCE_DIR})
endfunction()
