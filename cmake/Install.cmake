# What `cmake --install` (and `make install PREFIX=...`) puts where, FHS
# style, and the Debian package CPack makes of it (`make deb`).
#   lib/<multiarch>/jni/librotavox.so   the engine with the host platform
#                                       linked in (Debian's JNI directory, on
#                                       the JVM's default library path)
#   share/java/rotavox.jar              the application class
#   share/java/rotavox-javadoc.jar      its Javadoc
#   share/java/rotavox-demo.jar         the demo (java -jar ... FILE)
#   bin/rotavox-play, share/man/man1/rotavox-play.1
#   share/rotavox/rotavox-plot          the plotting script rotavox-play runs
include(GNUInstallDirs)

set(ROTAVOX_JNI_DIR ${CMAKE_INSTALL_LIBDIR}/jni)

install(TARGETS rotavox LIBRARY DESTINATION ${ROTAVOX_JNI_DIR})
if(TARGET rotavox-play)
  install(TARGETS rotavox-play RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(PROGRAMS tools/rotavox-play/rotavox-plot DESTINATION ${CMAKE_INSTALL_DATADIR}/rotavox)
  install(FILES tools/rotavox-play/rotavox-play.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
if(TARGET rotavox_java)
  install_jar(rotavox_java DESTINATION ${CMAKE_INSTALL_DATADIR}/java)
  install_jar(rotavox_demo DESTINATION ${CMAKE_INSTALL_DATADIR}/java)
  install(FILES ${CMAKE_BINARY_DIR}/java/rotavox-javadoc.jar DESTINATION ${CMAKE_INSTALL_DATADIR}/java)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME librotavox)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "librotavox developers <librotavox@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "turntable audio engine (signed speed, seek, real backward play)")
set(CPACK_PACKAGE_DESCRIPTION
    "The native engine behind com.quarlex.music.utils.Rotavox on a Linux host, its Java class and demo, and rotavox-play, a command-line player and renderer driven by a timed transport script.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# The shared libraries' packages come from dpkg-shlibdeps; what is run or
# loaded by name is listed here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "openjdk-17-jre-headless | java17-runtime-headless, libandroid-json-java, python3, python3-matplotlib")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
