# What the command is built from on macOS, where the system mounts and this prepares and examines. Used by the checks that run
# elsewhere too. The extension's identifier comes from hosts/macos/Sources.cmake.
set(KEMVI_APPLE_COMMAND_SOURCES
    check/ErrorCodesApple.cpp
    check/HelperGuardApple.cpp
    check/StopSignalsApple.cpp
    InitAdviceApple.cpp
    mainApple.cpp
    OwnProgramApple.cpp
    SystemMountApple.cpp
    TellSourceApple.cpp
    VersionTextApple.cpp)
list(TRANSFORM KEMVI_APPLE_COMMAND_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
include(${CMAKE_CURRENT_LIST_DIR}/PortableSources.cmake)
list(APPEND KEMVI_APPLE_COMMAND_SOURCES ${KEMVI_PORTABLE_COMMAND_SOURCES})
set(KEMVI_APPLE_COMMAND_DEFINITIONS
    KEMVI_VERSION="${PROJECT_VERSION}"
    KEMVI_SOURCE_HELPERS="${KEMVI_SOURCE_HELPERS}"
    # From Kemvi.app/Contents, in which the command lies in Helpers.
    KEMVI_INSTALLED_HELPERS="Extensions/KemviFSExtension.appex/Contents/Resources/node/helpers"
    KEMVI_INSTALLED_PROGRAMS="Helpers"
    KEMVI_EXTENSION_IDENTIFIER="${KEMVI_MACOS_EXTENSION_IDENTIFIER}")
