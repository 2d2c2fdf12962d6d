# SPDX-License-Identifier: MIT
# configure_helper_files(TO): the files that hold an absolute path, each with the path as its reader wants it, in the
# folder TO. Policies are taken from the folder TRANSLATED_POLICIES, if that is set. Also a script of its own (cmake -D TO=... -P).

function(quoted_for_xml result text)
    string(REPLACE "&" "&amp;" text "${text}")
    string(REPLACE "<" "&lt;" text "${text}")
    string(REPLACE ">" "&gt;" text "${text}")
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(configure_helper_files to)
    set(folder ${CMAKE_INSTALL_FULL_LIBEXECDIR}/morvaneoperation)
    if(MORVANE_UNIT_DIR)
        set(UNITS "${MORVANE_UNIT_DIR}")
        set(UNITS_IN_PLACE "${MORVANE_UNIT_DIR}")
    else()
        set(UNITS "${CMAKE_INSTALL_FULL_DATADIR}/morvaneoperation")
        set(UNITS_IN_PLACE /etc/systemd/system)
    endif()
    if("${folder}${CMAKE_INSTALL_FULL_DATADIR}${UNITS}" MATCHES "[\"'\\]")
        message(FATAL_ERROR "The service manager runs nothing with a quotation mark or a backslash in its path: ${folder}")
    endif()
    # For the service manager a per cent sign begins a specifier, within quotation marks too.
    string(REPLACE "%" "%%" UNIT_HELPER_FOLDER "${folder}")
    quoted_for_xml(XML_INSTALLER "${folder}/morvane-install-helper")
    if(TRANSLATED_POLICIES)
        set(policies ${TRANSLATED_POLICIES})
    else()
        set(policies ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    endif()
    configure_file(${policies}/io.github.morvaneoperation.InstallHelper.policy.in
        "${to}/io.github.morvaneoperation.InstallHelper.policy" @ONLY)
    foreach(file io.github.morvaneoperation.PrivilegedHelper.service
            morvane-install-helper
            io.github.morvaneoperation.PrivilegedHelper.8 morvane-install-helper.8)
        configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${file}.in "${to}/${file}" @ONLY)
    endforeach()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    configure_helper_files("${TO}")
endif()
