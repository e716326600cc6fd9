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
