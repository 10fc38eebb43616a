# Read by cpack for each kind of package: which parts of the installation go in. The part
# "source" (what an installation from source makes on the spot) goes into none of them.
set(CPACK_INSTALL_CMAKE_PROJECTS)
foreach(part Unspecified ${CPACK_GENERATOR})
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS "${CPACK_VELARIX_BUILD}" VelarixHA ${part} /)
endforeach()
