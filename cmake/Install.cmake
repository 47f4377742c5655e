# What `cmake --install` puts where. Components: library (the adaptor), tool (kovcam and the host), dev (headers and
# libraries to build on), gstreamer (the element, where it is built). The stand-ins have the phone's names, so they lie in a folder of their own, where only the
# library's and the tool's RUNPATH looks; installed files may be moved together.
include(CMakePackageConfigHelpers)

set(kov_private ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
install(TARGETS kovcameraadaptor LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(FILES ${PROJECT_SOURCE_DIR}/shots/Commands.h ${PROJECT_SOURCE_DIR}/shots/Modes.def
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}/shots COMPONENT dev)
file(GLOB mode_files RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/shots/*/Mode.def)
foreach(file ${mode_files})
    cmake_path(GET file PARENT_PATH folder)
    install(FILES ${PROJECT_SOURCE_DIR}/${file} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}/${folder}
            COMPONENT dev)
endforeach()
if(NOT KOV_HOST)
    return()
endif()

set_target_properties(kovcameraadaptor PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/${PROJECT_NAME}")
get_property(closed GLOBAL PROPERTY KOV_CLOSED_LIBRARIES)
set_target_properties(${closed} kovcalls PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/..")
file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(kovcam PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries};$ORIGIN/${libraries}/${PROJECT_NAME}")

install(TARGETS kovcam RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
install(TARGETS ${closed} kovcalls LIBRARY DESTINATION ${kov_private} COMPONENT library)
install(DIRECTORY ${PROJECT_BINARY_DIR}/root DESTINATION ${kov_private} COMPONENT library)
install(TARGETS kovruntime EXPORT KovCameraAdaptor LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(TARGETS kovsession kov_sources kov_platform kovcodes EXPORT KovCameraAdaptor
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)

if(KOV_GST)
    set_target_properties(gstkovcamera PROPERTIES INSTALL_RPATH "$ORIGIN/..;$ORIGIN/../${PROJECT_NAME}")
    install(TARGETS gstkovcamera LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0 COMPONENT gstreamer)
endif()

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${headers}/platform COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/libraries/kov DESTINATION ${headers} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/session DESTINATION ${headers}/tools COMPONENT dev
        FILES_MATCHING PATTERN "*.h")

set(share ${PROJECT_SOURCE_DIR}/tools/kovcam/share)
install(FILES ${PROJECT_BINARY_DIR}/kovcam.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
install(FILES ${share}/kovcam.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kovcam
        COMPONENT tool)
install(FILES ${share}/kovcam.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT tool)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/kovcam/examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)

# find_package(KovCameraAdaptor COMPONENTS codes service), and the same for pkg-config.
set(config ${CMAKE_INSTALL_LIBDIR}/cmake/KovCameraAdaptor)
install(EXPORT KovCameraAdaptor NAMESPACE KovCameraAdaptor:: DESTINATION ${config} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KovCameraAdaptorConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/KovCameraAdaptorConfig.cmake INSTALL_DESTINATION ${config})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KovCameraAdaptorConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KovCameraAdaptorConfig.cmake
              ${PROJECT_BINARY_DIR}/KovCameraAdaptorConfigVersion.cmake DESTINATION ${config} COMPONENT dev)
file(RELATIVE_PATH from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(part codes service)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/kovcameraadaptor-${part}.pc.in
                   ${PROJECT_BINARY_DIR}/kovcameraadaptor-${part}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/kovcameraadaptor-${part}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
            COMPONENT dev)
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/Package.cmake)
