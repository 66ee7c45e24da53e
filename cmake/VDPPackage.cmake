# `cpack -G DEB` in the build directory makes veridaneprobe_<version>_<arch>.deb, which installs
# into /usr and names the Debian packages the tool needs at run time.

set(CPACK_PACKAGE_NAME veridaneprobe)
set(CPACK_PACKAGE_VENDOR "veridaneprobe developers")
set(CPACK_PACKAGE_CONTACT "veridaneprobe developers <veridaneprobe@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "time error and clock stability analysis (ADEV, MDEV, TDEV, RMS TIE, MTIE)")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "Reads recorded time error data, or two audio recordings of one signal, and writes\n"
    "the time error series and its stability statistics as CSV files, Python plot\n"
    "scripts and PNG and PDF plots.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
# The embedded interpreter is the libpython the tool was linked with; python3-matplotlib and
# python3-numpy render the plots; python-is-python3 makes the saved scripts' #!/usr/bin/python
# line find Python 3. python3-tk gives matplotlib the window a saved script opens.
set(VDP_DEBIAN_DEPENDS
    libpython${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR} libsndfile1 libfftw3-double3
    "libstdc++6 (>= 12)" python3-matplotlib python3-numpy python-is-python3)
list(JOIN VDP_DEBIAN_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS python3-tk)
# Python leaves compiled copies of the hook's modules beside them; remove them with the package.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
