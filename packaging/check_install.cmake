# Installs the build into a scratch folder and checks the tree a package would ship:
#   cmake -DBUILD=... -DSTAGE=... -DVERSION=... -DICON_SIZES="16;24;..." -P check_install.cmake
# Fails with the first file that is missing, or when the installed program does not run.
file(REMOVE_RECURSE ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE}/usr
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed:\n${output}")
endif()

set(share ${STAGE}/usr/share)
set(expected
    ${STAGE}/usr/bin/quillo
    ${share}/applications/app.quillo.Quillo.desktop
    ${share}/metainfo/app.quillo.Quillo.metainfo.xml
    ${share}/icons/hicolor/scalable/apps/app.quillo.Quillo.svg
    ${share}/quillo/cursors/themes.json)
foreach(size ${ICON_SIZES})
    list(APPEND expected ${share}/icons/hicolor/${size}x${size}/apps/app.quillo.Quillo.png)
endforeach()
foreach(path ${expected})
    if(NOT EXISTS ${path})
        message(FATAL_ERROR "not installed: ${path}")
    endif()
endforeach()
file(GLOB cursor_art ${share}/quillo/cursors/*.png)
if(NOT cursor_art)
    message(FATAL_ERROR "no cursor art under ${share}/quillo/cursors")
endif()

# The entry's Exec, Icon and the metadata's launchable name what was installed.
file(READ ${share}/applications/app.quillo.Quillo.desktop entry)
foreach(line "Exec=quillo\n" "Icon=app.quillo.Quillo\n" "Exec=quillo --toggle-recording\n")
    string(FIND "${entry}" "${line}" at)
    if(at LESS 0)
        message(FATAL_ERROR "the desktop entry lacks ${line}")
    endif()
endforeach()
file(READ ${share}/metainfo/app.quillo.Quillo.metainfo.xml metainfo)
foreach(text "<launchable type=\"desktop-id\">app.quillo.Quillo.desktop</launchable>"
        "<binary>quillo</binary>" "<release version=\"${VERSION}\"")
    string(FIND "${metainfo}" "${text}" at)
    if(at LESS 0)
        message(FATAL_ERROR "the metadata lacks ${text}")
    endif()
endforeach()

execute_process(COMMAND ${STAGE}/usr/bin/quillo --version
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors TIMEOUT 30)
if(NOT result EQUAL 0 OR NOT output MATCHES "${VERSION}")
    message(FATAL_ERROR "installed quillo --version: exit ${result}, '${output}' ${errors}")
endif()
file(REMOVE_RECURSE ${STAGE})
