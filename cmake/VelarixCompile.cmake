# Compile settings shared by every target of this tree: warnings are errors,
# the sanitizers and the coverage counters are chosen by preset.

add_library(velarix_compile INTERFACE)
target_compile_options(velarix_compile INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
  -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
  -Wmissing-declarations $<$<BOOL:${VELARIX_WARNINGS_AS_ERRORS}>:-Werror>)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Collecting its garbage costs the compiler a tenth of its time. Without that it takes an eighth more
  # memory: 520 MB for the largest file.
  target_compile_options(velarix_compile INTERFACE --param=ggc-min-expand=1000 --param=ggc-min-heapsize=300000)
endif()

if(VELARIX_SANITIZE)
  target_compile_options(velarix_compile INTERFACE
    -fsanitize=${VELARIX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velarix_compile INTERFACE -fsanitize=${VELARIX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # gcc sees the ends of short strings wrongly when it instruments "text + text".
    target_compile_options(velarix_compile INTERFACE -Wno-array-bounds -Wno-stringop-overflow
      -Wno-stringop-overread -Wno-restrict)
  endif()
endif()

# Everything is compiled for the fuzzers, whose programs are made in fuzz/. A
# finding ends the program, whatever kind it is.
if(VELARIX_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VELARIX_FUZZ needs clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  target_compile_options(velarix_compile INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velarix_compile INTERFACE -fsanitize=address,undefined)
endif()

# Hardening of what is installed; tests/daemon/sandbox/BinaryTest.cpp and tests/package look for each of
# these in the built programs. The C library's checked functions need an optimising
# build, and the sanitizers bring their own.
add_library(velarix_hardened INTERFACE)
# In every build: precompiled headers and their users have to agree.
target_compile_options(velarix_hardened INTERFACE -fPIE)
if(NOT VELARIX_SANITIZE AND NOT VELARIX_FUZZ)
  target_compile_options(velarix_hardened INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
  target_link_options(velarix_hardened INTERFACE
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>
    -Wl,-z,relro,-z,now,-z,noexecstack)
  # Processors of that kind check where an indirect jump lands and a return leads.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
    target_compile_options(velarix_hardened INTERFACE -fcf-protection=full)
  endif()
endif()

if(VELARIX_COVERAGE)
  target_compile_options(velarix_compile INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(velarix_compile INTERFACE --coverage)
endif()

# Programs that run briefly: -O1 compiles faster than -O2.
add_library(velarix_brief_build INTERFACE)
target_compile_options(velarix_brief_build INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:-O1>)

# What is compiled once and run briefly. The preset "debug" has what a debugger needs.
add_library(velarix_quick_build INTERFACE)
target_compile_options(velarix_quick_build INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:-O0> $<$<CONFIG:RelWithDebInfo>:-g0>)

# velarix_room(NAME SOURCES... DEPENDS...): one static library per folder of the daemon.
function(velarix_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ROOM_DEPENDS} PRIVATE velarix_compile velarix_hardened)
endfunction()

# velarix_sources(RESULT FOLDER...): the source files of these folders.
function(velarix_sources result)
  set(all)
  foreach(folder ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND all ${sources})
  endforeach()
  set(${result} ${all} PARENT_SCOPE)
endfunction()

# The headers that most files of the companion programs include, precompiled: once for
# each set of compile settings.
function(velarix_headers name)
  add_library(${name} OBJECT EXCLUDE_FROM_ALL ${PROJECT_SOURCE_DIR}/cmake/headers.cpp)
  target_link_libraries(${name} PRIVATE ${ARGN})
  target_precompile_headers(${name} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/headers.h)
endfunction()

# velarix_companion(TARGET): compile settings of a target that is installed beside the daemon.
function(velarix_companion target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 14)
    # gcc sees the ends of short strings wrongly when it inlines "text + text".
    target_compile_options(${target} PRIVATE
      -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-restrict)
  endif()
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE velarix_compile velarix_hardened velarix_brief_build)
  target_precompile_headers(${target} REUSE_FROM velarix_headers_installed)
endfunction()

# velarix_apparatus(TARGET [HEADERS]): the same for what runs on a developer's machine alone;
# there a quick build counts for more than speed.
function(velarix_apparatus target)
  set(headers ${ARGN})
  if(NOT headers)
    set(headers velarix_headers_quick)
  endif()
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE velarix_compile velarix_quick_build)
  target_precompile_headers(${target} REUSE_FROM ${headers})
endfunction()
