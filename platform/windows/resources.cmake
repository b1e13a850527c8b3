# Writes tonewell.manifest and tonewell.rc, which names it, into TONEWELL_RESOURCES; both say the
# version. In a file of its own so that any host's cmake -P can show what comes out.
set(TONEWELL_ICON ${CMAKE_CURRENT_LIST_DIR}/tonewell.ico)
set(TONEWELL_MANIFEST ${TONEWELL_RESOURCES}/tonewell.manifest)
configure_file(${CMAKE_CURRENT_LIST_DIR}/tonewell.manifest.in ${TONEWELL_MANIFEST} @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/tonewell.rc.in ${TONEWELL_RESOURCES}/tonewell.rc @ONLY)
