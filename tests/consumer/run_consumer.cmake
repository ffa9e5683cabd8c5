# Installs the build into a scratch prefix, then builds and runs the consumer
# project against it with find_package, and checks the pkg-config file.
set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
# Exactly the public folder is installed: every header under include/, and
# none of the internal ones beside the sources.
file(GLOB_RECURSE public RELATIVE ${SOURCE}/../../include/grabsystem ${SOURCE}/../../include/grabsystem/*.h)
file(GLOB_RECURSE installed RELATIVE ${prefix}/include/grabsystem ${prefix}/include/grabsystem/*.h)
list(APPEND public grabsystem_export.h)
list(SORT public)
list(SORT installed)
if(NOT public STREQUAL installed)
  message(FATAL_ERROR "installed headers differ from include/grabsystem:\n  installed: ${installed}\n  public: ${public}")
endif()
file(GLOB_RECURSE internal RELATIVE ${SOURCE}/../../grabsystem ${SOURCE}/../../grabsystem/*.h)
foreach(header platform/os/os.h platform/os/env_system.h platform/copy_rows.h platform/thread_pool.h
               platform/device/cuda_driver.h pool/fps_meter.h platform/camera/camera_device.h)
  list(FIND internal ${header} at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${header} is no longer an internal header")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -G Ninja -DCMAKE_PREFIX_PATH=${prefix}
                COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/build COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
execute_process(COMMAND ${WORK}/build/consumer WORKING_DIRECTORY ${WORK} COMMAND_ERROR_IS_FATAL ANY)
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc ${prefix}/*/grabsystem.pc)
  get_filename_component(pcdir "${pc}" DIRECTORY)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} ${PKG_CONFIG} --libs --cflags grabsystem
                  OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
  if(NOT flags MATCHES "-lgrabsystem")
    message(FATAL_ERROR "pkg-config gives no -lgrabsystem: ${flags}")
  endif()
endif()
