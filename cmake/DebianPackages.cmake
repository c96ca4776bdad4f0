# The Debian packages that cpack makes of the installed components, each named after its package.
option(FRONTPANELHW_PACKAGES "Install what belongs to Debian packages only, and let cpack make them" OFF)
if(NOT FRONTPANELHW_PACKAGES)
    return()
endif()
if(NOT (FRONTPANELHW_TOOLS AND FRONTPANELHW_SIMULATOR AND FRONTPANELHW_GPIO STREQUAL "sysfs"))
    message(FATAL_ERROR "FRONTPANELHW_PACKAGES needs FRONTPANELHW_TOOLS, FRONTPANELHW_SIMULATOR and FRONTPANELHW_GPIO=sysfs")
endif()

set(library libfrontpanelhw${PROJECT_VERSION_MAJOR})
set(gpio_library libsysfsgpio${PROJECT_VERSION_MAJOR})
set(development ${FRONTPANELHW_DEVELOPMENT_COMPONENT})
set(tools ${FRONTPANELHW_TOOLS_COMPONENT})
set(debian_version ${PROJECT_VERSION}-1)
set(sources ${CMAKE_CURRENT_LIST_DIR}/packages)

# package(COMPONENT SECTION DEPENDS DESCRIPTION): a package and what it needs beyond the libraries that its programs are
# linked with. The first line of the description is its summary.
macro(package component section depends description)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} name)
    set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${component})
    set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${name}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${name}_DESCRIPTION "${description}")
    install(FILES ${sources}/copyright ${PROJECT_BINARY_DIR}/changelog.Debian.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${component} COMPONENT ${component})
endmacro()

package(${gpio_library} libs ""
"GPIO lines of the kernel
libfrontpanelhw drives a front panel by the pins of this library, lines of
/dev/gpiochipN or /sys/class/gpio. A device can replace it by its own GPIO
library.")
package(${library} libs "${gpio_library} (>= ${PROJECT_VERSION})"
"front panel library: keys, LEDs and a character LCD
This library detects which front panel a device has, reports its keys,
switches its LEDs and shows text on its LCD of 3 lines of 25 characters,
all on GPIO lines.")
package(${development} libdevel "${library} (= ${debian_version}), ${gpio_library} (= ${debian_version})"
"front panel library: headers, CMake package and pkg-config file
The files to build an application that uses libfrontpanelhw, or a GPIO
library for it.")
package(${tools} utils "${library} (>= ${PROJECT_VERSION}), ${gpio_library} (>= ${PROJECT_VERSION}), adduser"
"front panel command line and simulator
The program frontpanel operates a front panel from the shell. The program
panelsim runs applications for the device on a simulated panel. A udev rule
gives the members of group gpio access to the GPIO lines.")

configure_file(${sources}/changelog.in ${PROJECT_BINARY_DIR}/changelog.Debian @ONLY)
execute_process(COMMAND ${GZIP_PROGRAM} -9nc ${PROJECT_BINARY_DIR}/changelog.Debian
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${sources}/60-frontpanel-gpio.rules DESTINATION lib/udev/rules.d COMPONENT ${tools})

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_VENDOR "libfrontpanelhw developers")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE libfrontpanelhw)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libfrontpanelhw developers <developers@libfrontpanelhw.invalid>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/sysfs ${PROJECT_BINARY_DIR}/frontpanelhw)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
string(TOUPPER ${tools} name)
set(CPACK_DEBIAN_${name}_PACKAGE_CONTROL_EXTRA ${sources}/postinst;${sources}/postrm)
set(CPACK_PROJECT_CONFIG_FILE ${sources}/CPackProject.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${sources}/FinishPackages.cmake)
include(CPack)
