# Debian packages through CPack: `cpack -G DEB` in a build tree configured
# with CMAKE_INSTALL_PREFIX=/usr (scripts/package.sh does both). Dependencies
# on system libraries come from dpkg-shlibdeps; only those between our own
# packages are named here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME oru-device)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "oru_device maintainers <maintainers@users.noreply.c-seed-0bb3c619.example>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev cli python)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# Our own libraries, for dpkg-shlibdeps to find while they are not installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE ORU_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(ORU_DEB_ARCH arm64)
  elseif(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(ORU_DEB_ARCH armhf)
  endif()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${ORU_DEB_ARCH})
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liboru-device1)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "driver library for the ORU USB spectral sensor
Host library of the ORU filter-array spectral sensor (USB 0483:5740, 1024
filter outputs): finds and opens sensors, sets the exposure, reads averaged
filter data and frame streams. Also carries the udev rule that lets users
open the sensor and keeps ModemManager away from it, and a virtual sensor
for work without hardware.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/liboru-device1/postinst
    ${CMAKE_CURRENT_LIST_DIR}/debian/liboru-device1/triggers)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME liboru-device-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "driver library for the ORU USB spectral sensor (development files)
Headers, pkg-config file and CMake package of liboru_device.")
set(CPACK_DEBIAN_CLI_PACKAGE_NAME oru-sensor)
set(CPACK_DEBIAN_CLI_PACKAGE_SECTION utils)
# h5py reads the HDF5 logs; mosquitto-clients shows what the logger publishes.
set(CPACK_DEBIAN_CLI_PACKAGE_SUGGESTS "python3-h5py, mosquitto-clients")
set(CPACK_DEBIAN_CLI_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/oru-sensor/postinst)
set(CPACK_DEBIAN_CLI_DESCRIPTION "command-line tool for the ORU USB spectral sensor
Lists sensors, reads and logs filter data as CSV or JSON Lines, sets the
exposure, checks the machine's set-up, builds spectral calibrations (HDF5)
from monochromator sweeps, and logs unattended as a systemd service into
rotating CSV, JSON Lines or HDF5 files, publishing readings and health to an
MQTT broker; oru-vsensor-calibration writes a virtual sensor's true response.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-oru-sensor)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, python3-numpy, python3-aiohttp")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Python binding of the ORU USB spectral sensor library
The oru_sensor module: sensors, readings, frame streams, and a live view
in the browser (python3 -m oru_sensor.web).")
# The command line and the binding load the library at run time.
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_CLI_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)

# Each package's copyright and changelog. The changelog is compressed when
# the build is configured, so that `cmake --install` works after a build of
# only some targets (scripts/run.sh builds three).
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog)
execute_process(COMMAND gzip -9 -n -c ${CMAKE_CURRENT_LIST_DIR}/debian/changelog
  OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz RESULT_VARIABLE ORU_GZIP_RESULT)
if(NOT ORU_GZIP_RESULT EQUAL 0)
  message(FATAL_ERROR "gzip of packaging/debian/changelog failed: ${ORU_GZIP_RESULT}")
endif()
foreach(entry runtime:liboru-device1 dev:liboru-device-dev cli:oru-sensor python:python3-oru-sensor)
  string(REPLACE ":" ";" entry ${entry})
  list(GET entry 0 component)
  list(GET entry 1 pkg)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION share/doc/${pkg} COMPONENT ${component})
endforeach()

include(CPack)
