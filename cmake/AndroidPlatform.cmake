# The platform libraries as Debian packages them: headers in /usr/include/android, libraries in a
# directory of their own beside the multiarch one.
find_path(ANDROID_INCLUDE_DIR android-base/logging.h PATHS /usr/include/android REQUIRED)
foreach(library base log)
  find_library(ANDROID_${library}_LIBRARY ${library}
               PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  add_library(android_${library} UNKNOWN IMPORTED)
  set_target_properties(android_${library} PROPERTIES
                        IMPORTED_LOCATION ${ANDROID_${library}_LIBRARY}
                        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR})
endforeach()
# result.h formats with fmt; header-only keeps libfmt out of what is linked.
set_property(TARGET android_base APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS FMT_HEADER_ONLY)
target_link_libraries(android_base INTERFACE android_log)
