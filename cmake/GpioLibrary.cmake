# The library whose sysfs::SysfsGpioFactory makes the panels' pins: this project's, on the kernel's sysfs interface, or
# the one that the device provides. Sets what is to be linked:
#   frontpanelhw_gpio_library             in this build
#   frontpanelhw_installed_gpio_library   by CMake projects that use the installed library
#   frontpanelhw_pc_gpio_library          by the output of pkg-config
# What is installed names no place of this machine: a library that is given as a file is known by its name there.
set(FRONTPANELHW_GPIO sysfs CACHE STRING "GPIO library under the panels: sysfs (this project's) or external (the device's)")
set_property(CACHE FRONTPANELHW_GPIO PROPERTY STRINGS sysfs external)
set(FRONTPANELHW_GPIO_LIBRARY "" CACHE STRING
    "With FRONTPANELHW_GPIO=external: a CMake target, the absolute path of a shared library or the name of one")

if(FRONTPANELHW_GPIO STREQUAL "sysfs")
    if(FRONTPANELHW_GPIO_LIBRARY)
        message(FATAL_ERROR "FRONTPANELHW_GPIO_LIBRARY is for FRONTPANELHW_GPIO=external only")
    endif()
    set(frontpanelhw_gpio_library sysfsgpio)
    set(frontpanelhw_installed_gpio_library frontpanelhw::sysfsgpio)
    set(frontpanelhw_pc_gpio_library -lsysfsgpio)
    return()
endif()

if(NOT FRONTPANELHW_GPIO STREQUAL "external")
    message(FATAL_ERROR "FRONTPANELHW_GPIO is '${FRONTPANELHW_GPIO}'; choose sysfs or external")
endif()
if(NOT FRONTPANELHW_GPIO_LIBRARY)
    message(FATAL_ERROR "FRONTPANELHW_GPIO=external needs FRONTPANELHW_GPIO_LIBRARY: a target, a file or a name")
endif()
set(frontpanelhw_gpio_library ${FRONTPANELHW_GPIO_LIBRARY})
if(TARGET "${FRONTPANELHW_GPIO_LIBRARY}")
    # The installed package links it itself, since a target of this build is in no export of this project.
    set(frontpanelhw_installed_gpio_library "")
    set(frontpanelhw_gpio_target ${FRONTPANELHW_GPIO_LIBRARY})
    # Where the target's library is installed, only its own project knows: applications name it themselves.
    set(frontpanelhw_pc_gpio_library "")
elseif(IS_ABSOLUTE "${FRONTPANELHW_GPIO_LIBRARY}")
    if(NOT EXISTS ${FRONTPANELHW_GPIO_LIBRARY} OR IS_DIRECTORY ${FRONTPANELHW_GPIO_LIBRARY})
        message(FATAL_ERROR "FRONTPANELHW_GPIO_LIBRARY: there is no file ${FRONTPANELHW_GPIO_LIBRARY}")
    endif()
    cmake_path(GET FRONTPANELHW_GPIO_LIBRARY FILENAME gpio_file)
    set(frontpanelhw_installed_gpio_library -l:${gpio_file})
    set(frontpanelhw_pc_gpio_library -l:${gpio_file})
elseif(FRONTPANELHW_GPIO_LIBRARY MATCHES "[/ ;]|::|^-|\\.so")
    message(FATAL_ERROR "FRONTPANELHW_GPIO_LIBRARY: '${FRONTPANELHW_GPIO_LIBRARY}' is no target, absolute path or name")
else()
    set(frontpanelhw_installed_gpio_library ${FRONTPANELHW_GPIO_LIBRARY})
    set(frontpanelhw_pc_gpio_library -l${FRONTPANELHW_GPIO_LIBRARY})
endif()
