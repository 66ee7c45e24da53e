# What `cmake --install` puts under the prefix (/usr/local unless --prefix, CMAKE_INSTALL_PREFIX
# or CPack's /usr say otherwise; DESTDIR is honoured): the executable (veridaneprobe/), the plot
# runner, the man page, the README, and the Python modules that let saved scripts run directly.

install(PROGRAMS python/veridaneprobe-plot DESTINATION ${CMAKE_INSTALL_BINDIR})

set(VDP_PYTHON_VERSION ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR})
configure_file(doc/veridaneprobe.1.in ${PROJECT_BINARY_DIR}/doc/veridaneprobe.1 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/doc/veridaneprobe.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# veridaneprobe-check's man page lists every mask of the definitions file, with its source.
# ';' separates a limit's segments and CMake's list items alike: it is held as <SEMI> meanwhile.
set(VD_MASKS_INSTALLED ${CMAKE_INSTALL_FULL_DATADIR}/veridaneprobe/masks.txt)
file(READ ${PROJECT_SOURCE_DIR}/analysis-library/masks/masks.txt VD_MASK_TEXT)
string(REPLACE ";" "<SEMI>" VD_MASK_TEXT "${VD_MASK_TEXT}")
string(REPLACE "\n" ";" VD_MASK_LINES "${VD_MASK_TEXT}")
list(FILTER VD_MASK_LINES EXCLUDE REGEX "^#|^ *$")
set(VD_MASK_MAN_LIST "")
foreach(line IN LISTS VD_MASK_LINES)
  string(REPLACE "|" ";" fields "${line}")
  list(TRANSFORM fields STRIP)
  list(GET fields 0 id)
  list(GET fields 1 metric)
  list(GET fields 2 limit)
  list(GET fields 3 standard)
  list(GET fields 4 edition)
  list(GET fields 5 table)
  list(GET fields 8 source)
  string(REPLACE "-" "\\-" id "${id}")
  string(APPEND VD_MASK_MAN_LIST ".TP\n.B ${id} ${metric}\n${limit} ns<SEMI> "
         "${standard} (${edition}), ${table}: ${source}\n")
endforeach()
string(REPLACE "<SEMI>" ";" VD_MASK_MAN_LIST "${VD_MASK_MAN_LIST}")
configure_file(doc/veridaneprobe-check.1.in ${PROJECT_BINARY_DIR}/doc/veridaneprobe-check.1 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/doc/veridaneprobe-check.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# The .pth file must lie in a directory that Python reads at start-up, and which one depends on
# the prefix the files finally land under, known only at install time: Debian's Python reads
# lib/python3/dist-packages under /usr, and lib/python3.X/dist-packages under /usr/local. Other
# prefixes get the latter; VDP_PYTHON_SITE_DIR (relative to the prefix) overrides the choice.
set(VDP_PYTHON_SITE_DIR "" CACHE STRING
    "Python site directory for the classic matplotlib hook, relative to the install prefix")
install(CODE "
  set(VDP_PYTHON_SITE_DIR \"${VDP_PYTHON_SITE_DIR}\")
  if(NOT VDP_PYTHON_SITE_DIR AND CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    set(VDP_PYTHON_SITE_DIR lib/python3/dist-packages)
  elseif(NOT VDP_PYTHON_SITE_DIR)
    set(VDP_PYTHON_SITE_DIR lib/python${VDP_PYTHON_VERSION}/dist-packages)
  endif()")
install(FILES python/veridaneprobe_compat.py python/veridaneprobe_classic_matplotlib.py
              python/veridaneprobe-classic-matplotlib.pth
        DESTINATION "\${VDP_PYTHON_SITE_DIR}")
