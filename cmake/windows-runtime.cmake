# The DLLs that mingw-w64 programs load at run time: the compiler's runtime
# (libstdc++, libgcc, winpthread) and libgcrypt with libgpg-error. They are
# copied next to the programs so that the bin folder runs anywhere.
set(GRABSYS_WINDOWS_RUNTIME_DLLS)
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll libgcrypt-20.dll libgpg-error-0.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
    OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${found}" OR NOT EXISTS "${found}")
    unset(found)
    find_file(found NAMES ${dll} PATH_SUFFIXES bin lib NO_CACHE)
  endif()
  if(NOT found)
    message(FATAL_ERROR "runtime DLL ${dll} not found; is the mingw-w64 toolchain installed?")
  endif()
  list(APPEND GRABSYS_WINDOWS_RUNTIME_DLLS ${found})
endforeach()
file(COPY ${GRABSYS_WINDOWS_RUNTIME_DLLS} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
