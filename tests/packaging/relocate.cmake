# cmake -DBUILD_DIR=... -DWORK=... -DQML_DIR=lib/qml [-DQMLTESTRUNNER=... -DTEST_QML=...] -P relocate.cmake
# Installs, moves the prefix, and runs the programs and (given a qmltestrunner) the QML module from
# there without LD_LIBRARY_PATH: whatever still looks for its libraries where they were installed fails.
function(run expected_output)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen
                            VANTRO_PROFILE_LOCATION=${WORK}/profiles ${ARGN}
        INPUT_FILE ${WORK}/input.json
        OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
    if(NOT result EQUAL 0 OR NOT output MATCHES "${expected_output}")
        message(FATAL_ERROR "${ARGN} from the moved prefix: exit ${result}\n${output}\n${errors}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK}/installed
    OUTPUT_QUIET RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "the install failed")
endif()
file(RENAME ${WORK}/installed ${WORK}/moved)
file(WRITE ${WORK}/input.json "{\"b\": 1, \"a\": 2}")

set(bin ${WORK}/moved/bin)
run("^{\"a\":2,\"b\":1}" ${bin}/vantro-sign canonicalize)
run("Usage" ${bin}/vantro-account --help)
run("" ${bin}/vantro-account-devservice --help)
if(QMLTESTRUNNER)
    run("Totals: [1-9][0-9]* passed, 0 failed" ${QMLTESTRUNNER} -import ${WORK}/moved/${QML_DIR} -input ${TEST_QML})
endif()
