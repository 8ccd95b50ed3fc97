# Installs the library's component into a fresh stage directory:
#   cmake -DBUILD_DIR=<build> -DSTAGE=<dir> -P stage.cmake
file(REMOVE_RECURSE ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${STAGE} --component murmex
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "installing into ${STAGE} failed (${rc})")
endif()
foreach(f include/murmex/murmex.h)
  if(NOT EXISTS ${STAGE}/${f})
    message(FATAL_ERROR "the stage lacks ${f}")
  endif()
endforeach()
file(GLOB_RECURSE libs ${STAGE}/libmurmex.so*)
file(GLOB_RECURSE configs ${STAGE}/murmexConfig.cmake)
file(GLOB_RECURSE pcs ${STAGE}/murmex.pc)
if(NOT libs OR NOT configs OR NOT pcs)
  message(FATAL_ERROR "the stage lacks the library, its CMake package or its pkg-config file")
endif()
