# The Debian packages: "orvel", the client with what a desktop needs to know of it, and "orvel-localengine".
# To be included when every other install rule stands.
find_program(GZIP_EXECUTABLE gzip REQUIRED)
find_program(RSVG_CONVERT_EXECUTABLE rsvg-convert REQUIRED)

set(ORVEL_DEB_MAINTAINER "Velmora d.d. <support@${ORVEL_ORGANIZATION_DOMAIN}>"
  CACHE STRING "Name and address of whoever answers for the packages")
set(ORVEL_DEB_REVISION 1 CACHE STRING "Number of the packages among those of the same version")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "${ORVEL_DEB_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # would become the first line of both descriptions
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL client localengine)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ORVEL_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://${ORVEL_WEB_SITE}/")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME orvel)
set(CPACK_DEBIAN_CLIENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_CLIENT_PACKAGE_RECOMMENDS "orvel-localengine, xdg-utils")
set(CPACK_DEBIAN_CLIENT_PACKAGE_SUGGESTS libglib2.0-bin) # gio, which gives the folder its icon
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "tray client of the cloud storage Orvel Storage
The client keeps one folder the same on all computers of its user and in the
cloud. It runs in the tray, signs the user in, starts a separate sync engine
and shows what that engine is doing.")

# Code that was compiled for one release of Erlang is read by that one and later ones.
execute_process(
  COMMAND "${ERL_EXECUTABLE}" -noinput -eval "io:put_chars(erlang:system_info(otp_release)), halt()."
  OUTPUT_VARIABLE otp_release
  COMMAND_ERROR_IS_FATAL ANY
)
set(CPACK_DEBIAN_LOCALENGINE_PACKAGE_NAME orvel-localengine)
set(CPACK_DEBIAN_LOCALENGINE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LOCALENGINE_PACKAGE_DEPENDS "erlang-base (>= 1:${otp_release}), erlang-crypto (>= 1:${otp_release})")
set(CPACK_DEBIAN_LOCALENGINE_PACKAGE_ENHANCES orvel)
set(CPACK_DEBIAN_LOCALENGINE_DESCRIPTION "sync engine without a network for Orvel Storage
A small stand-in for the service's own engine, for trying the client out: it
keeps the sync folder and a directory on the same computer the same. Nothing
is encrypted and nothing leaves the computer.")

set(sources "${PROJECT_SOURCE_DIR}/packaging/linux")
set(made "${PROJECT_BINARY_DIR}/packaging")
set(program_dir "${CPACK_PACKAGING_INSTALL_PREFIX}/${ORVEL_PROGRAM_DIR}")
set(package_version ${PROJECT_VERSION}-${ORVEL_DEB_REVISION})

# Both follow SOURCE_DATE_EPOCH.
string(TIMESTAMP date_iso "%Y-%m-%d" UTC)
string(TIMESTAMP date_rfc "%a, %d %b %Y %H:%M:%S +0000" UTC)

# The name under which desktops look for the entry of a running Qt program.
string(REPLACE "." ";" desktop_id "${ORVEL_ORGANIZATION_DOMAIN}")
list(REVERSE desktop_id)
list(APPEND desktop_id orvel)
list(JOIN desktop_id "." desktop_id)

# Title, the line of the copyright, and the terms.
file(READ "${PROJECT_SOURCE_DIR}/LICENSE" license)
string(REGEX MATCH "\nCopyright [^\n]*" copyright_lines "${license}")
string(FIND "${license}" "Permission is" start)
string(SUBSTRING "${license}" ${start} -1 license_lines)
string(STRIP "${copyright_lines}" copyright_lines)
string(REGEX REPLACE "^Copyright" "Copyright:" copyright_lines "${copyright_lines}")
string(STRIP "${license_lines}" license_lines)
string(REPLACE "\n\n" "\n.\n" license_lines "${license_lines}")
string(REPLACE "\n" "\n " license_lines " ${license_lines}")

foreach(file orvel orvel.1 orvel.desktop orvel.metainfo.xml changelog copyright)
  configure_file("${sources}/${file}.in" "${made}/${file}" @ONLY)
endforeach()

# compressed(RESULT FILE)
function(compressed result file)
  add_custom_command(OUTPUT "${made}/${result}" DEPENDS "${file}" VERBATIM
    COMMAND "${GZIP_EXECUTABLE}" -9nc "${file}" > "${made}/${result}")
endfunction()
compressed(orvel.1.gz "${made}/orvel.1")
compressed(changelog.Debian.gz "${made}/changelog")
compressed(changelog.gz "${PROJECT_SOURCE_DIR}/CHANGELOG.md")

set(icons)
set(drawings "${PROJECT_SOURCE_DIR}/resources/svg")
foreach(size 16 22 24 32 48 64 128 256)
  set(drawing "${drawings}/omri.svg")
  if(size LESS_EQUAL 32)
    set(drawing "${drawings}/small/omri.svg")
  endif()
  set(icon "${made}/orvel-${size}.png")
  add_custom_command(OUTPUT "${icon}" DEPENDS "${drawing}" VERBATIM
    COMMAND "${RSVG_CONVERT_EXECUTABLE}" -w ${size} -h ${size} -o "${icon}" "${drawing}")
  list(APPEND icons "${icon}")
  install(FILES "${icon}" DESTINATION share/icons/hicolor/${size}x${size}/apps RENAME orvel.png COMPONENT client)
endforeach()
install(FILES "${drawings}/omri.svg" DESTINATION share/icons/hicolor/scalable/apps RENAME orvel.svg COMPONENT client)

add_custom_target(package_files ALL DEPENDS
  "${made}/orvel.1.gz" "${made}/changelog.Debian.gz" "${made}/changelog.gz" ${icons})

install(PROGRAMS "${made}/orvel" DESTINATION bin COMPONENT client)
install(FILES "${made}/orvel.desktop" DESTINATION share/applications RENAME ${desktop_id}.desktop COMPONENT client)
install(FILES "${made}/orvel.metainfo.xml" DESTINATION share/metainfo RENAME ${desktop_id}.metainfo.xml
  COMPONENT client)
install(FILES "${made}/orvel.1.gz" DESTINATION share/man/man1 COMPONENT client)
install(FILES "${made}/changelog.gz" DESTINATION share/doc/orvel COMPONENT client)
foreach(component client localengine)
  string(TOUPPER ${component} upper)
  install(FILES "${made}/copyright" "${made}/changelog.Debian.gz"
    DESTINATION share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component})
endforeach()

include(CPack)
