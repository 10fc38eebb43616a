# Read by cpack for each kind of package: which parts of the installation go in.
# The part "source" (what an installation from source makes on the spot) goes into
# none of them.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(parts Unspecified debian)
elseif(CPACK_GENERATOR STREQUAL "RPM")
  set(parts Unspecified rpm)
else()
  set(parts Unspecified)
endif()
set(CPACK_INSTALL_CMAKE_PROJECTS)
foreach(part ${parts})
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS "${CPACK_VELARIX_BUILD}" VelarixHA ${part} /)
endforeach()
