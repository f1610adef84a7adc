# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later

# What `cmake --install` copies, and where. A distribution's package holds exactly this. The paths of
# the configuration, the logs and the journal are constants of the programs, so they are absolute;
# DESTDIR goes before them as before all others.
include(GNUInstallDirs)
set(VOLTIS_TMPFILESDIR lib/tmpfiles.d CACHE STRING "Where systemd-tmpfiles looks")
set(VOLTIS_SYSUSERSDIR lib/sysusers.d CACHE STRING "Where systemd-sysusers looks")
set(VOLTIS_UNITDIR lib/systemd/system CACHE STRING "Where systemd looks for units")
set(VOLTIS_BASHCOMPLETIONDIR ${CMAKE_INSTALL_DATADIR}/bash-completion/completions CACHE STRING "Where bash looks")
set(VOLTIS_ZSHCOMPLETIONDIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks")

# CMake gives folders that it makes on its way the rights that the umask leaves, and the shop's account
# must get into them. A folder that is there stays as it is.
install(CODE [[
    function(voltis_make_folder path)
        if(IS_DIRECTORY "${path}")
            return()
        endif()
        get_filename_component(above "${path}" DIRECTORY)
        voltis_make_folder("${above}")
        file(MAKE_DIRECTORY "${path}")
        file(CHMOD "${path}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endfunction()
    function(voltis_make_destination path)
        get_filename_component(path "${path}" ABSOLUTE BASE_DIR "${CMAKE_INSTALL_PREFIX}")
        get_filename_component(path "$ENV{DESTDIR}${path}" ABSOLUTE)
        voltis_make_folder("${path}")
    endfunction()
]])
# The folders of what is installed after it.
function(voltis_install_folders)
    foreach(folder ${ARGN})
        install(CODE "voltis_make_destination(\"${folder}\")")
    endforeach()
endfunction()

voltis_install_folders(${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_DOCDIR} ${VOLTIS_TMPFILESDIR}
    /etc/voltis/registers /etc/logrotate.d)
install(TARGETS voltis RUNTIME)
# A configuration that is there belongs to the shop: the new one is put beside it.
function(voltis_install_configuration name)
    install(CODE "set(file \"\$ENV{DESTDIR}/etc/voltis/${name}\")
    if(EXISTS \"\${file}\")
        string(APPEND file \".new\")
    endif()
    message(STATUS \"Installing: \${file}\")
    file(COPY_FILE ${CMAKE_CURRENT_SOURCE_DIR}/config/${name} \"\${file}\")
    file(CHMOD \"\${file}\" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)")
endfunction()
voltis_install_configuration(voltis.ini)
# So does this one; a second file there would be one more configuration.
install(CODE [[
    set(file "$ENV{DESTDIR}/etc/logrotate.d/voltis")
    set(kept FALSE)
    if(EXISTS "${file}")
        set(kept TRUE)
        message(STATUS "Kept: ${file}")
    endif()
]])
install(CODE "if(NOT kept)
        message(STATUS \"Installing: \${file}\")
        file(COPY_FILE ${CMAKE_CURRENT_SOURCE_DIR}/config/logrotate \"\${file}\")
        file(CHMOD \"\${file}\" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    endif()")
install(FILES config/tmpfiles.conf DESTINATION ${VOLTIS_TMPFILESDIR} RENAME voltis.conf)
# Debian has the group in every system.
option(VOLTIS_INSTALL_SYSUSERS "Install what makes the group dialout where there is none" ON)
if(VOLTIS_INSTALL_SYSUSERS)
    voltis_install_folders(${VOLTIS_SYSUSERSDIR})
    install(FILES config/sysusers.conf DESTINATION ${VOLTIS_SYSUSERSDIR} RENAME voltis.conf)
endif()
install(FILES README.md CHANGELOG.md SECURITY.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
# A distribution has the common licences in one place.
option(VOLTIS_INSTALL_LICENCES "Install the texts of the licences" ON)
if(VOLTIS_INSTALL_LICENCES)
    voltis_install_folders(${CMAKE_INSTALL_DOCDIR}/LICENSES)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
    install(FILES LICENSES/0BSD.txt DESTINATION ${CMAKE_INSTALL_DOCDIR}/LICENSES)
endif()
# Not with the permissions of the source, which the umask of its clone has made.
set(of_programs OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(DIRECTORY docs examples contrib DESTINATION ${CMAKE_INSTALL_DOCDIR} DIRECTORY_PERMISSIONS ${of_programs}
    REGEX "\\.sh$|/pos/sell\\.(php|py)$" PERMISSIONS ${of_programs})

# What of other projects is in the programs.
set(sbom ${CMAKE_BINARY_DIR}/voltis.spdx.json)
# At every build, for the versions of the packages are in it.
add_custom_target(voltis_sbom ALL
    COMMAND ${CMAKE_SOURCE_DIR}/scripts/lib/sbom.sh voltis ${PROJECT_VERSION} ${VOLTIS_VERSION_EPOCH}
        ${CMAKE_CXX_COMPILER} > ${sbom}.new
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${sbom}.new ${sbom}
    BYPRODUCTS ${sbom})
install(FILES ${sbom} DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(VOLTIS_TOOLS)
    install(TARGETS voltisctl RUNTIME)
    # What the shells read is printed by the program itself.
    set(completion ${CMAKE_BINARY_DIR}/completion)
    foreach(shell bash zsh)
        add_custom_command(OUTPUT ${completion}/${shell}
            COMMAND voltisctl completion ${shell} > ${completion}/${shell}.new
            COMMAND ${CMAKE_COMMAND} -E rename ${completion}/${shell}.new ${completion}/${shell})
    endforeach()
    file(MAKE_DIRECTORY ${completion})
    add_custom_target(voltis_completion ALL DEPENDS ${completion}/bash ${completion}/zsh)
    foreach(page ${VOLTIS_MAN_PAGES})
        get_filename_component(section ${page} LAST_EXT)
        string(REPLACE "." "man" section ${section})
        voltis_install_folders(${CMAKE_INSTALL_MANDIR}/${section})
        install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/${section})
    endforeach()
    voltis_install_folders(${VOLTIS_BASHCOMPLETIONDIR} ${VOLTIS_ZSHCOMPLETIONDIR})
    install(FILES ${completion}/bash DESTINATION ${VOLTIS_BASHCOMPLETIONDIR} RENAME voltisctl)
    install(FILES ${completion}/zsh DESTINATION ${VOLTIS_ZSHCOMPLETIONDIR} RENAME _voltisctl)
endif()

if(VOLTIS_SERVICE)
    voltis_install_folders(${CMAKE_INSTALL_SBINDIR} ${VOLTIS_UNITDIR} ${VOLTIS_SYSUSERSDIR})
    install(TARGETS voltisd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
    voltis_install_configuration(voltisd.conf)
    install(FILES config/voltisd.socket DESTINATION ${VOLTIS_UNITDIR})
    install(FILES config/sysusers-voltisd.conf DESTINATION ${VOLTIS_SYSUSERSDIR} RENAME voltisd.conf)
    install(FILES config/tmpfiles-voltisd.conf DESTINATION ${VOLTIS_TMPFILESDIR} RENAME voltisd.conf)
    # The path in it follows the prefix of the installation.
    install(CODE "
        get_filename_component(SBINDIR \"${CMAKE_INSTALL_SBINDIR}\" ABSOLUTE BASE_DIR \"\${CMAKE_INSTALL_PREFIX}\")
        get_filename_component(folder \"${VOLTIS_UNITDIR}\" ABSOLUTE BASE_DIR \"\${CMAKE_INSTALL_PREFIX}\")
        set(file \"\$ENV{DESTDIR}\${folder}/voltisd.service\")
        message(STATUS \"Installing: \${file}\")
        configure_file(${CMAKE_CURRENT_SOURCE_DIR}/config/voltisd.service.in \"\${file}\" @ONLY
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)")
endif()

# Everything that is installed and has to be built.
add_custom_target(voltis_installed DEPENDS voltis voltis_sbom)
if(VOLTIS_TOOLS)
    add_dependencies(voltis_installed voltisctl voltis_completion voltis_man)
endif()
if(VOLTIS_SERVICE)
    add_dependencies(voltis_installed voltisd)
endif()
