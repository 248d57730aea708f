# use_fast_allocator(PROGRAM): gives a program mimalloc instead of the C library's allocator, for all
# that it allocates, the library's frames first of all. A sanitizer brings its own.
function(use_fast_allocator program)
  if(NOT sanitized)
    find_package(mimalloc REQUIRED)
    target_link_libraries(${program} PRIVATE mimalloc)
    # The program names none of its symbols, and some linkers drop what seems unused.
    target_link_options(${program} PRIVATE LINKER:--no-as-needed)
  endif()
endfunction()
