# find_package(xcp_daq): the targets xcp_daq::xcp_daq, the library; xcp_daq::halmor_standin, a host to
# run it on; xcp_daq::io, a receiver of datagrams.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/xcp_daqTargets.cmake)
