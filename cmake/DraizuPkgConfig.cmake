# draizu.pc for builds that do not use CMake. Its prefix is filled in when installing, not when
# configuring, so that `cmake --install BUILD --prefix DIR` gives a file that names DIR. The
# other directories stay relative to ${prefix} where they can, as pkg-config users expect.
set(DRAIZU_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
foreach(dir LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
        set(DRAIZU_PC_${dir} "${CMAKE_INSTALL_${dir}}")
    else()
        set(DRAIZU_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
    endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/draizu.pc.in ${PROJECT_BINARY_DIR}/draizu.pc.in @ONLY)

install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/draizu.pc.in\" \"${PROJECT_BINARY_DIR}/draizu.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/draizu.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
