# For Windows, the virtual machine comes along: what tools/build-otp.sh has built.
set(ORVEL_OTP_WINDOWS "" CACHE PATH "The virtual machine for Windows; without it the engine is not installed")
if(NOT ORVEL_OTP_WINDOWS)
    return()
endif()

install(DIRECTORY "${ORVEL_OTP_WINDOWS}/erlang" DESTINATION . COMPONENT localengine)
install(FILES ${_engine_beams} DESTINATION erlang/srv/ebin COMPONENT localengine)
install(DIRECTORY "${ORVEL_OTP_WINDOWS}/licences" DESTINATION . COMPONENT localengine)
