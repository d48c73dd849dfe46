# The ScreenCast backend of the Wayland tests: Debian's xdg-desktop-portal-wlr rebuilt so that it
# shares the screen of a compositor without a GPU. Binaries that start a WaylandSession (tests,
# benchmarks) depend on quillo_portal_wlr. A failed build stops nothing: it leaves failure.txt,
# the tests skip with its reason, and the next build tries again.
set(QUILLO_PORTAL_WLR_DIR ${CMAKE_BINARY_DIR}/wayland)
include_guard(GLOBAL)
add_custom_command(OUTPUT ${QUILLO_PORTAL_WLR_DIR}/xdg-desktop-portal-wlr
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/build-portal-wlr ${QUILLO_PORTAL_WLR_DIR}
        --keep-going
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/build-portal-wlr
        ${CMAKE_CURRENT_LIST_DIR}/shm-only-screencopy.patch
    COMMENT "Building xdg-desktop-portal-wlr for the Wayland tests"
    VERBATIM)
add_custom_target(quillo_portal_wlr DEPENDS ${QUILLO_PORTAL_WLR_DIR}/xdg-desktop-portal-wlr)
