# Read by cpack before it makes the packages.

# Each package has its own summary, the first line of its description.
unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY)

# Packages of another architecture depend on what that architecture's libraries say.
if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL "armhf")
    set(SHLIBDEPS_EXECUTABLE ${CMAKE_CURRENT_LIST_DIR}/../../scripts/parts/shlibdeps-armhf)
endif()
