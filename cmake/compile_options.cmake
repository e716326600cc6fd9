# Warnings and numerical options that hold for every target of the project.
option(INSOLATE_WERROR "Treat warnings as errors" OFF)

function(insolate_compile_options target)
  # No contraction into fused operations: every machine must round the same way.
  # errno of mathematical functions is never read.
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    -ffp-contract=off -fno-math-errno
    $<$<BOOL:${INSOLATE_WERROR}>:-Werror>
    # GCC 12 warns of overlapping copies in every `"text" + std::string` (GCC bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
  if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT INSOLATE_SANITIZE)
    target_compile_options(${target} PRIVATE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "SHARED_LIBRARY" OR type STREQUAL "EXECUTABLE")
      target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
    endif()
  endif()
  if(INSOLATE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${INSOLATE_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_compile_definitions(${target} PRIVATE INSOLATE_SANITIZED)
    target_link_options(${target} PUBLIC -fsanitize=${INSOLATE_SANITIZE})
    if(INSOLATE_SANITIZE MATCHES "undefined" AND NOT target STREQUAL "insolate_objects")
      # The kernel lays out memory itself. Elsewhere the address sanitizer shows null pointers and
      # small objects too, and these checks would take a quarter of the compile time.
      target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment,object-size,vptr)
    endif()
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/sanitizers/suppressions.cpp)
    endif()
    if(INSOLATE_SANITIZE STREQUAL "thread")
      # The packaged oneTBB is not instrumented: its hand-over of work between threads stays unseen.
      target_include_directories(${target} BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/tests/sanitizers/plain_threads)
    endif()
  endif()
endfunction()

# In unity builds the sources of a folder are compiled together: those of each group below. What is in
# no group stays by itself.
function(insolate_unity target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${INSOLATE_UNITY} UNITY_BUILD_MODE GROUP)
  if(INSOLATE_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC takes the anonymous namespaces of sources that are included for those of headers.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
  endif()
endfunction()

# insolate_unity_group(<target> <sources of the current folder>)
function(insolate_unity_group target)
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set_source_files_properties(${ARGN} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${folder})
endfunction()
