# The installed library and its consumers, and the sources inside other projects and with the user's flags.
qv_add_test(install_test install/install_test.cpp ONE_PROCESS)
qv_add_test(subproject_test install/subproject_test.cpp ONE_PROCESS)
qv_add_test(user_flags_test install/user_flags_test.cpp ONE_PROCESS)
