# find_package(tallow): the target tallow::tallow, which is the include folder for hosts in C and C++.
# A host loads the module when it runs, so there is nothing to link. tallow_BIN_DIR is the folder with
# tallowin.dll and its language libraries.
get_filename_component(tallow_ROOT_DIR "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
set(tallow_BIN_DIR "${tallow_ROOT_DIR}/bin")
if(NOT TARGET tallow::tallow)
  add_library(tallow::tallow INTERFACE IMPORTED)
  set_target_properties(tallow::tallow PROPERTIES INTERFACE_INCLUDE_DIRECTORIES
                                                  "${tallow_ROOT_DIR}/include")
endif()
