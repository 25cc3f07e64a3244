# The targets brisolt::brisolt and, for who wants the archive in any case, brisolt::brisolt_static.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/brisoltTargets.cmake")
if(NOT TARGET brisolt::brisolt_static) # there is nothing else
    add_library(brisolt::brisolt_static INTERFACE IMPORTED)
    target_link_libraries(brisolt::brisolt_static INTERFACE brisolt::brisolt)
endif()
