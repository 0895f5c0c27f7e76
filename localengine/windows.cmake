# For Windows, the virtual machine comes along: what tools/build-otp.sh has built.
set(ORVEL_OTP_WINDOWS "" CACHE PATH "The virtual machine for Windows; without it the engine is not installed")
if(NOT ORVEL_OTP_WINDOWS)
    return()
endif()

install(DIRECTORY "${ORVEL_OTP_WINDOWS}/erlang" DESTINATION . COMPONENT localengine)
install(FILES ${_engine_beams} DESTINATION erlang/srv/ebin COMPONENT localengine)
install(DIRECTORY "${ORVEL_OTP_WINDOWS}/licences" DESTINATION . COMPONENT localengine)

if(TARGET localengine_tests)
    # As the client starts it; EUnit is this computer's own.
    execute_process(COMMAND ${ERL_EXECUTABLE} -noinput -eval "io:put_chars(code:lib_dir(eunit)),halt()."
        OUTPUT_VARIABLE _eunit COMMAND_ERROR_IS_FATAL ANY)
    add_test(NAME localengine.unit COMMAND "${CMAKE_CROSSCOMPILING_EMULATOR}"
        "${ORVEL_OTP_WINDOWS}/erlang/erts-9.0/bin/erl.exe" +Bd -noshell
        -pa "Z:${_engine_ebin}" "Z:${_engine_ebin_test}" "Z:${_eunit}/ebin" -run engine_tests main unit)
    set_tests_properties(localengine.unit PROPERTIES LABELS unit TIMEOUT 600)

    # Where the build's own installation step puts it; the tests only read there.
    set(_installation "${PROJECT_BINARY_DIR}/localengine/installation")
    add_test(NAME localengine.installation COMMAND "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}"
        --prefix "${_installation}" --component localengine)
    set_tests_properties(localengine.installation PROPERTIES FIXTURES_SETUP localengine_installation)
    add_test(NAME localengine.endtoend COMMAND "${CMAKE_CROSSCOMPILING_EMULATOR}"
        "${ORVEL_OTP_WINDOWS}/erlang/erts-9.0/bin/erl.exe" +Bd -noshell
        -pa "Z:${_engine_ebin}" "Z:${_engine_ebin_test}" "Z:${_eunit}/ebin" -run engine_tests main endtoend)
    set_tests_properties(localengine.endtoend PROPERTIES LABELS integration TIMEOUT 600
        FIXTURES_REQUIRED localengine_installation
        ENVIRONMENT "ORVEL_TEST_INSTALLATION=Z:${_installation}")
endif()
