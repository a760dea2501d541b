# Adds to the package what stands outside of its prefix. The environment may hold a password.
configure_file(${CMAKE_CURRENT_LIST_DIR}/zemhost.default ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/etc/default/zemhost
    COPYONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE)
