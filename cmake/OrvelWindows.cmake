# What a program for Windows needs beside it: Qt, the compiler's own libraries, and Qt's plugins in the
# directories that it looks for them in. They are put beside the built programs and are installed with
# the client.
foreach(library libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${library}
    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT IS_ABSOLUTE "${path}")
    message(FATAL_ERROR "${library} is missing")
  endif()
  list(APPEND client_libraries "${path}")
endforeach()
list(APPEND client_libraries
  "$<TARGET_FILE:Qt5::Core>" "$<TARGET_FILE:Qt5::Gui>" "$<TARGET_FILE:Qt5::Network>" "$<TARGET_FILE:Qt5::Widgets>")

set(build_bin "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${build_bin}")
set(copies
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${build_bin}/platforms" "${build_bin}/styles"
  COMMAND "${CMAKE_COMMAND}" -E copy_if_different ${client_libraries} "${build_bin}")
install(FILES ${client_libraries} DESTINATION . COMPONENT client)
foreach(plugin IN ITEMS platforms/QWindowsIntegration styles/QWindowsVistaStyle)
  cmake_path(GET plugin PARENT_PATH directory)
  cmake_path(GET plugin FILENAME name)
  list(APPEND copies COMMAND "${CMAKE_COMMAND}" -E copy_if_different
    "$<TARGET_FILE:Qt5::${name}Plugin>" "${build_bin}/${directory}")
  install(FILES "$<TARGET_FILE:Qt5::${name}Plugin>" DESTINATION ${directory} COMPONENT client)
endforeach()

if(BUILD_TESTING)
  find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
  list(APPEND copies COMMAND "${CMAKE_COMMAND}" -E copy_if_different
    "$<TARGET_FILE:Qt5::Test>" "${build_bin}"
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different
    "$<TARGET_FILE:Qt5::QOffscreenIntegrationPlugin>" "${build_bin}/platforms")
endif()
add_custom_target(runtime ALL ${copies} VERBATIM)
