# What `cmake --install` puts where, by the GNU folders below the prefix: the library for programs to be linked against
# (component "development"), what they need to run (component "library"), and the servers and tools with all that the
# host is to know of them (component "programs").
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KSW_PACKAGE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/Kestrelwood)
set(KSW_SHARE ${CMAKE_SOURCE_DIR}/share)
find_program(KSW_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

# ksw_absolute(RESULT FOLDER): a folder of GNUInstallDirs with the prefix in front, as files that are installed name it.
function(ksw_absolute result folder)
    cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE OUTPUT_VARIABLE path)
    set(${result} ${path} PARENT_SCOPE)
endfunction()

function(ksw_install_library)
    install(TARGETS kestrelwood_shared EXPORT KestrelwoodTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(TARGETS kestrelwood_static EXPORT KestrelwoodTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    set_target_properties(kestrelwood_shared PROPERTIES EXPORT_NAME kestrelwood)
    set_target_properties(kestrelwood_static PROPERTIES EXPORT_NAME kestrelwood_static)
    install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/kestrelwood DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development FILES_MATCHING PATTERN "*.h")
endfunction()

# How other builds find the library: find_package(Kestrelwood CONFIG) and pkg-config.
function(ksw_install_development_files)
    install(EXPORT KestrelwoodTargets NAMESPACE Kestrelwood:: DESTINATION ${KSW_PACKAGE_FOLDER}
        COMPONENT development)
    set(made ${CMAKE_BINARY_DIR}/install)
    configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/install/KestrelwoodConfig.cmake.in
        ${made}/KestrelwoodConfig.cmake INSTALL_DESTINATION ${KSW_PACKAGE_FOLDER})
    write_basic_package_version_file(${made}/KestrelwoodConfigVersion.cmake COMPATIBILITY SameMinorVersion)
    # pkg-config works the prefix out from where the file lies, so that a tree may be moved.
    file(RELATIVE_PATH KSW_PREFIX_FROM_PC ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig
        ${CMAKE_INSTALL_PREFIX})
    configure_file(${CMAKE_SOURCE_DIR}/cmake/install/kestrelwood.pc.in ${made}/kestrelwood.pc @ONLY)
    install(FILES ${made}/KestrelwoodConfig.cmake ${made}/KestrelwoodConfigVersion.cmake
        DESTINATION ${KSW_PACKAGE_FOLDER} COMPONENT development)
    install(FILES ${made}/kestrelwood.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# ksw_install_made(FILE.in FOLDER): a file with the places of programs in it.
function(ksw_install_made source folder)
    get_filename_component(name ${source} NAME_WLE)
    file(RELATIVE_PATH place ${CMAKE_SOURCE_DIR} ${source})
    get_filename_component(place ${place} DIRECTORY)
    configure_file(${source} ${CMAKE_BINARY_DIR}/${place}/${name} @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/${place}/${name} DESTINATION ${folder} COMPONENT programs)
endfunction()

# The service manager's units, what it makes at start, and who may be asked for which right.
function(ksw_install_services)
    ksw_absolute(KSW_SBINDIR ${CMAKE_INSTALL_SBINDIR})
    foreach(domain system user)
        file(GLOB units CONFIGURE_DEPENDS ${KSW_SHARE}/systemd/${domain}/*.in)
        foreach(unit ${units})
            ksw_install_made(${unit} lib/systemd/${domain})
        endforeach()
        file(GLOB units CONFIGURE_DEPENDS ${KSW_SHARE}/systemd/${domain}/*.socket)
        install(FILES ${units} DESTINATION lib/systemd/${domain} COMPONENT programs)
    endforeach()
    install(FILES ${KSW_SHARE}/examples/without-user-namespaces.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kestrelwood/examples COMPONENT programs)
    install(FILES ${KSW_SHARE}/tmpfiles.d/kestrelwood.conf DESTINATION lib/tmpfiles.d COMPONENT programs)
    install(FILES ${KSW_SHARE}/polkit-1/actions/com.velmont.kestrelwood.policy
        DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions COMPONENT programs)
endfunction()

# What servers, tools and the library in any program look up under /usr/share, whatever the prefix.
function(ksw_install_data)
    set(folder ${CMAKE_INSTALL_DATADIR}/kestrelwood)
    install(DIRECTORY ${KSW_SHARE}/Resources ${KSW_SHARE}/features DESTINATION ${folder} COMPONENT programs
        FILES_MATCHING PATTERN "*.plist")
    install(DIRECTORY DESTINATION ${folder}/trust COMPONENT programs)
    install(DIRECTORY DESTINATION ${folder}/trust/maker COMPONENT programs)
endfunction()

# Manual pages and completions. Those of a tool are made from what its help says, so that they say the same.
function(ksw_install_manual)
    set(made)
    foreach(tool kswctl kswsign)
        set(outputs ${CMAKE_BINARY_DIR}/share/man/man1/${tool}.1)
        set(command ${KSW_PYTHON3} ${CMAKE_SOURCE_DIR}/scripts/from-help)
        set(page ${KSW_SHARE}/man/${tool}.1.in)
        set(commands COMMAND ${command} manual $<TARGET_FILE:${tool}> ${page} > ${outputs})
        foreach(shell bash zsh fish)
            list(APPEND outputs ${CMAKE_BINARY_DIR}/share/completions/${tool}.${shell})
            list(APPEND commands COMMAND ${command} ${shell} $<TARGET_FILE:${tool}>
                > ${CMAKE_BINARY_DIR}/share/completions/${tool}.${shell})
        endforeach()
        file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/share/man/man1 ${CMAKE_BINARY_DIR}/share/completions)
        add_custom_command(OUTPUT ${outputs} ${commands} VERBATIM
            DEPENDS ${tool} ${page} ${CMAKE_SOURCE_DIR}/scripts/from-help COMMENT "Reading the help of ${tool}")
        list(APPEND made ${outputs})
        install(FILES ${CMAKE_BINARY_DIR}/share/man/man1/${tool}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
        set(completions ${CMAKE_BINARY_DIR}/share/completions/${tool})
        install(FILES ${completions}.bash RENAME ${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT programs)
        install(FILES ${completions}.zsh RENAME _${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT programs)
        install(FILES ${completions}.fish
            DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT programs)
    endforeach()
    add_custom_target(manual ALL DEPENDS ${made})
    set(pages_of 3 development 7 programs 8 programs)  # section, component
    while(pages_of)
        list(POP_FRONT pages_of section component)
        file(GLOB pages CONFIGURE_DEPENDS ${KSW_SHARE}/man/*.${section}.in)
        foreach(page ${pages})
            get_filename_component(name ${page} NAME_WLE)
            set(VERSION ${PROJECT_VERSION})
            configure_file(${page} ${CMAKE_BINARY_DIR}/share/man/man${section}/${name} @ONLY)
            install(FILES ${CMAKE_BINARY_DIR}/share/man/man${section}/${name}
                DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
        endforeach()
    endwhile()
endfunction()

function(ksw_install_programs)
    install(TARGETS kswctl kswsign RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
    foreach(server kestrelwoodd kestrelwoodagent)
        if(TARGET ${server})
            install(TARGETS ${server} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT programs)
        endif()
    endforeach()
    ksw_install_services()
    ksw_install_data()
    # What is built with sanitizers is not installed, and asking it for its help takes long.
    if(NOT KSW_SANITIZE)
        ksw_install_manual()
    endif()
endfunction()

ksw_install_library()
ksw_install_development_files()
ksw_install_programs()
