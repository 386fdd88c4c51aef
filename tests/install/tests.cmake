# The installed library and its consumers.
qv_add_test(install_test install/install_test.cpp ONE_PROCESS)
