# GPU kernels for the programs that run on a GPU machine (the GPU test and
# benchmark). The library itself never builds against CUDA: where a CUDA
# toolkit is installed, nvcc turns a kernel into PTX at configure time and
# the PTX is embedded in a header, which the program hands to the driver it
# loads at run time.
find_program(GRABSYS_NVCC nvcc HINTS /usr/local/cuda/bin)

# grabsys_embed_ptx(<kernel.cu> <C++ name> <dir_var>): makes "<kernel>_ptx.h",
# which defines the string <C++ name>, and sets <dir_var> in the caller to
# the folder to include it from; to "" where there is no nvcc or it fails.
function(grabsys_embed_ptx cu name dir_var)
  set(${dir_var} "" PARENT_SCOPE)
  if(NOT GRABSYS_NVCC OR CMAKE_CROSSCOMPILING)
    return()
  endif()
  get_filename_component(stem ${cu} NAME_WE)
  get_filename_component(cu_path ${cu} ABSOLUTE)
  set(dir ${CMAKE_CURRENT_BINARY_DIR}/ptx)
  file(MAKE_DIRECTORY ${dir})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${cu_path})
  execute_process(COMMAND ${GRABSYS_NVCC} -ptx -arch=compute_75 ${cu_path} -o ${dir}/${stem}.ptx
    RESULT_VARIABLE nvcc_result OUTPUT_QUIET ERROR_QUIET)
  if(NOT nvcc_result EQUAL 0)
    message(STATUS "nvcc could not compile ${cu}")
    return()
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -DIN=${dir}/${stem}.ptx -DOUT=${dir}/${stem}_ptx.h -DNAME=${name}
    -DSOURCE=${stem}.cu -P ${PROJECT_SOURCE_DIR}/cmake/embed_ptx.cmake)
  set(${dir_var} ${dir} PARENT_SCOPE)
endfunction()
