# Adds /etc/default/zemhost to the package, which is outside the prefix. Only root can read the file: it may contain a
# password.
configure_file(${CMAKE_CURRENT_LIST_DIR}/zemhost.default ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/etc/default/zemhost
    COPYONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE)
