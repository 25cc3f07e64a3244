# The targets brisolt::brisolt and, where both kinds of library are installed, brisolt::brisolt_static.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/brisoltTargets.cmake")
