# ./kov package: a Debian package of the library with the stand-ins it needs, one of the tool, one to build on, and one of
# the GStreamer element, so that only who wants that gets GStreamer.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kovcameraadaptor)
set(CPACK_PACKAGE_CONTACT "The developers of libkovcameraadaptor <kov@localhost>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library tool dev)
if(KOV_GST)
    list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkovcameraadaptor)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "camera adaptor with eight capture modes
 Puts a capture mode (panorama, smile, burst, action and others) between a camera service and the vendor's camera layer.
 This package has the library, and stand-ins for the phone's libraries.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kovcam)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libkovcameraadaptor (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "camera with eight capture modes, on the command line and in the browser
 Takes pictures in the modes of the camera adaptor from scenes, files, videos and webcams.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkovcameraadaptor-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libkovcameraadaptor (= ${PROJECT_VERSION}), libopencv-dev, nlohmann-json3-dev, libexif-dev, libpng-dev, libturbojpeg0-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "camera adaptor: headers and libraries to build on
 The header of codes and names for applications, and the service side as a library.")
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-kovcamera)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS "libkovcameraadaptor (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION "camera with eight capture modes, as a GStreamer element
 The element kovcamerasrc shows, records and streams the preview of the camera adaptor, and gives the pictures that its
 modes take.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "opencv-data")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)

# What Debian wants in every package: whose it is, and what changed.
find_program(GZIP gzip REQUIRED)
function(kov_gzipped from to)
    add_custom_command(OUTPUT ${to} COMMAND ${GZIP} -9 -n -c ${from} > ${to} DEPENDS ${from} VERBATIM)
endfunction()
kov_gzipped(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_BINARY_DIR}/changelog.gz)
kov_gzipped(${share}/kovcam.1 ${PROJECT_BINARY_DIR}/kovcam.1.gz)
add_custom_target(kov_gzipped ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz ${PROJECT_BINARY_DIR}/kovcam.1.gz)
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component})
endforeach()

include(CPack)
