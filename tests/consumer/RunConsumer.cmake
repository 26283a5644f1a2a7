# Installs the kit into a scratch prefix, builds a consumer project against it and runs it.
file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${KIT_BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
                RESULT_VARIABLE result)
if(result)
    message(FATAL_ERROR "install failed: ${result}")
endif()

# The standalone service comes with the package: it must start from the prefix (its library
# path) and accept the example config installed beside it.
if(SERVICE_BUILT)
    set(example "${WORK_DIR}/prefix/share/vistrel/vistrel-service.json")
    execute_process(COMMAND "${WORK_DIR}/prefix/bin/vistrel-service" --check --config "${example}"
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result OR NOT output MATCHES "Config: ${example}")
        message(FATAL_ERROR "installed vistrel-service: ${result} ${output}")
    endif()
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${PROJECT_DIR}" -B "${WORK_DIR}/build" -G Ninja
                        "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix" -DCMAKE_BUILD_TYPE=Release
                        "-DCMAKE_CXX_FLAGS=${CONSUMER_CXX_FLAGS}"
                        "-DCMAKE_EXE_LINKER_FLAGS=${CONSUMER_LINKER_FLAGS}"
                RESULT_VARIABLE result)
if(result)
    message(FATAL_ERROR "configure failed: ${result}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/build" RESULT_VARIABLE result)
if(result)
    message(FATAL_ERROR "build failed: ${result}")
endif()
execute_process(COMMAND "${WORK_DIR}/build/consumer" RESULT_VARIABLE result)
if(result)
    message(FATAL_ERROR "consumer exited with ${result}")
endif()
