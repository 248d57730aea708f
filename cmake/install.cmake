# What cmake --install puts where: the library, the stand-in with what a task on it needs, the task, the
# simulated slave.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(public_headers
  xcp_daq/api_xcp_daq.h xcp_daq/api_xcp_daq_threads.h xcp_daq/export.h
  xcp_daq/xcp_daq_master_init.h host/halmor_runtime.h host/transport_udp.h)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/xcp_daq)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/xcp_daq)

install(TARGETS xcp_daq halmor_standin halmor_host io EXPORT xcp_daqTargets)
install(EXPORT xcp_daqTargets NAMESPACE xcp_daq:: DESTINATION ${package})
install(FILES ${public_headers} DESTINATION ${headers})
install(FILES host/standin/variable_store.h host/standin/raw_form.h DESTINATION ${headers}/host/standin)
install(FILES io/udp_receiver.h io/udp_socket.h io/udp_endpoint.h io/file_descriptor.h
  DESTINATION ${headers}/io)

write_basic_package_version_file(${PROJECT_BINARY_DIR}/xcp_daqConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/xcp_daqConfig.cmake ${PROJECT_BINARY_DIR}/xcp_daqConfigVersion.cmake
  DESTINATION ${package})

# Relative, so that the installed tree may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(module xcp_daq halmor_standin)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

if(XCP_DAQ_BUILD_TASK)
  set_target_properties(xcp_daq_task PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS xcp_daq_task xcp_simulated_slave)
  install(FILES task/output/plot.gnuplot DESTINATION ${CMAKE_INSTALL_DATADIR}/xcp_daq)
  install(FILES docs/xcp_daq_task.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
