# What the extension is built from, for the Apple build and for the checks that run elsewhere.
set(KEMVI_MACOS_SOURCES ItemTable.mm KemviFSExtension.mm KemviItem.mm KemviUnaryFileSystem.mm KemviVolume.mm Replies.mm
                        ToCore.mm ToFSKit.mm)
list(TRANSFORM KEMVI_MACOS_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
set(KEMVI_MACOS_APP_SOURCES ${CMAKE_CURRENT_LIST_DIR}/app/main.mm)

# Identifiers are unique across all developers: whoever signs the extension sets their own.
set(KEMVI_MACOS_APP_IDENTIFIER com.kemvi.fs CACHE STRING "Bundle identifier of the macOS application")
set(KEMVI_MACOS_EXTENSION_IDENTIFIER ${KEMVI_MACOS_APP_IDENTIFIER}.extension) # the system wants the application's as prefix
# Directories as mount sources came with this version.
set(KEMVI_MACOS_MINIMUM_SYSTEM 26.0)

# Writes the bundles' property lists and the entitlements to a folder.
function(kemvi_macos_declarations folder)
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/Info.plist.in ${folder}/Extension-Info.plist @ONLY)
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/app/Info.plist.in ${folder}/App-Info.plist @ONLY)
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/KemviFSExtension.entitlements
                 ${folder}/KemviFSExtension.entitlements COPYONLY)
endfunction()
