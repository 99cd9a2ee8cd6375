# cmake -DQMLPLUGINDUMP=... -DIMPORT_PATH=... -DOUTPUT=... [-DCOMPARE=ON -DCOMMITTED=...] -P dumpqmltypes.cmake
#
# Writes the type description of Vantro.Account 1.0 as the staged plugin registers it; with COMPARE,
# fails when the committed description differs.
execute_process(
    COMMAND ${QMLPLUGINDUMP} -noinstantiate -nonrelocatable Vantro.Account 1.0 ${IMPORT_PATH}
    OUTPUT_VARIABLE types
    ERROR_VARIABLE errors
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "qmlplugindump failed (${result}): ${errors}")
endif()
# The dump names the folder it read; the committed file must not depend on where the build is.
string(REPLACE "${IMPORT_PATH}" "<prefix>/lib/qml" types "${types}")
file(WRITE ${OUTPUT} "${types}")
if(COMPARE)
    file(READ ${COMMITTED} committed)
    if(NOT committed STREQUAL types)
        message(FATAL_ERROR "qml/plugins.qmltypes is out of date: "
                            "run `cmake --build --preset dev --target vantro-qmltypes` and commit it")
    endif()
endif()
