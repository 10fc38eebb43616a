# velarix_whole_folders(TARGET FOLDER... [APART REGEX])
# With VELARIX_WHOLE_FOLDERS the target's sources in each of the folders are compiled as
# one, all but those whose names match: most of the time goes into the libraries'
# headers. scripts/check sees to it that no two files of such a folder clash.
function(velarix_whole_folders target)
  cmake_parse_arguments(WHOLE "" "APART" "" ${ARGN})
  if(NOT VELARIX_WHOLE_FOLDERS)
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # gcc takes what a file keeps to itself for a header's.
  target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    get_filename_component(path ${source} ABSOLUTE)
    get_filename_component(name ${path} NAME)
    get_filename_component(folder ${path} DIRECTORY)
    get_filename_component(folder ${folder} NAME)
    if(folder IN_LIST WHOLE_UNPARSED_ARGUMENTS AND NOT (WHOLE_APART AND name MATCHES "${WHOLE_APART}"))
      set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${folder})
    endif()
  endforeach()
endfunction()
