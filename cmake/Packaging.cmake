# `cmake --install` and `cpack -G DEB`. Included last, when all targets are there.

# The platform's own libraries keep to the directory that Debian's packages have for them; what only
# the workstation's library and tool share keeps to one of its own.
set(private_library_dir ${CMAKE_INSTALL_LIBDIR}/extproperty)
get_filename_component(android_library_dir ${ANDROID_base_LIBRARY} DIRECTORY)
file(RELATIVE_PATH libraries_from_tool /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})

set_target_properties(device_platform PROPERTIES INSTALL_RPATH ${android_library_dir})
set_target_properties(extproperty PROPERTIES
                      INSTALL_RPATH "$ORIGIN/extproperty;${android_library_dir}")
install(TARGETS extproperty LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS device_platform LIBRARY DESTINATION ${private_library_dir})
install(DIRECTORY system/core_common/extproperty/include/extproperty
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(EXTPROPERTY_HOST)
  set_target_properties(extprop PROPERTIES INSTALL_RPATH
    "$ORIGIN/${libraries_from_tool}/extproperty;${android_library_dir}")
  install(TARGETS extprop)
  install(FILES host/extprop/extprop.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES host/extprop/completion/extprop
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES host/extprop/completion/_extprop
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES host/extprop/completion/extprop.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME extproperty)
set(CPACK_PACKAGE_CONTACT "The extproperty developers <extproperty@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Property loading of a partitioned Android image")
set(CPACK_PACKAGE_DESCRIPTION "Contains the shared library that extends init's property loading \
to the extension partitions, its header, and extprop, which boots the files of a device in a \
sandbox and tells which file or rule decides each property.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# By which images are unpacked.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "7zip, e2fsprogs, erofs-utils")
# Named here, as Debian's packages of the platform's libraries do not say what they provide.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "android-libbase, android-liblog, libselinux1, libc6 (>= 2.36), \
libgcc-s1, libstdc++6 (>= 12)")
include(CPack)
