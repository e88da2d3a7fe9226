# Configures the project as on a Mac, as far as that goes without one (nothing is compiled or linked), and looks at what
# the build would do. Run as: cmake -DSOURCE=... -DWORK=... -DCLANGXX=... -DDECLARATIONS=... -P ConfigureForApple.cmake
cmake_minimum_required(VERSION 3.25)

# Stand-ins for what the configuration looks for and does not use.
file(REMOVE_RECURSE ${WORK})
file(WRITE ${WORK}/libsimdjson.a "")
file(WRITE ${WORK}/kemvi.provisionprofile "")
execute_process(
  COMMAND
    ${CMAKE_COMMAND} -G Ninja -S ${SOURCE} -B ${WORK}/build -DCMAKE_SYSTEM_NAME=Darwin
    -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_INSTALL_NAME_TOOL=${CMAKE_COMMAND}
    -DCMAKE_CXX_COMPILER=${CLANGXX} -DCMAKE_CXX_COMPILER_TARGET=arm64-apple-macos15.4 -DCMAKE_CXX_COMPILER_WORKS=1
    -DCMAKE_OBJCXX_COMPILER=${CLANGXX} -DCMAKE_OBJCXX_COMPILER_TARGET=arm64-apple-macos15.4
    -DCMAKE_OBJCXX_COMPILER_WORKS=1 -DSIMDJSON_STATIC=${WORK}/libsimdjson.a -DSIMDJSON_INCLUDE=${WORK}
    -DKEMVI_MACOS_SIGN_IDENTITY=Somebody -DKEMVI_MACOS_PROFILE=${WORK}/kemvi.provisionprofile
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ninja -C ${WORK}/build -t commands kemvi_macos_app OUTPUT_VARIABLE commands
                COMMAND_ERROR_IS_FATAL ANY)

function(expect_match what pattern)
  if(NOT commands MATCHES "${pattern}")
    message(SEND_ERROR "${what}: no build command matches ${pattern}")
  endif()
endfunction()

set(extension "bin/Kemvi\\.app/Contents/Extensions/KemviFSExtension\\.appex")
expect_match("the sources use ARC" "-fobjc-arc[^\n]* -c [^\n]*/hosts/macos/KemviVolume\\.mm")
expect_match("the code is limited to what extensions may call"
             "-fapplication-extension[^\n]* -c [^\n]*/hosts/macos/KemviVolume\\.mm")
expect_match("the first macOS with FSKit is aimed at" "-mmacosx-version-min=15\\.4")
expect_match("the entry point is Foundation's" "-Xlinker -e -Xlinker _NSExtensionMain[^\n]*-framework FSKit")
expect_match("the extension lies in the application"
             "copy_directory [^ \n]*bin/KemviFSExtension\\.appex [^ \n]*${extension} ")
expect_match("the command lies in the application"
             "-E copy [^ \n]*bin/kemvi [^ \n]*bin/Kemvi\\.app/Contents/Helpers/kemvi ")
expect_match("the command knows the extension's identifier"
             "KEMVI_EXTENSION_IDENTIFIER=[\\\\\"]+com\\.kemvi\\.fs\\.extension[^\n]* -c [^\n]*/cli/InitAdviceApple\\.cpp")
expect_match("the profile lies in the extension"
             "kemvi\\.provisionprofile [^ \n]*${extension}/Contents/embedded\\.provisionprofile")
expect_match("the command is signed, the extension with its entitlements, then the application around them"
             "--sign Somebody [^ \n]*bin/Kemvi\\.app/Contents/Helpers/kemvi && codesign [^&\n]*--sign Somebody --entitlements [^ \n]*KemviFSExtension\\.entitlements [^ \n]*${extension} && codesign [^&\n]*--sign Somebody [^ \n]*bin/Kemvi\\.app ")

foreach(pair "KemviFSExtension.appex|Extension-Info.plist" "Kemvi.app|App-Info.plist")
  string(REPLACE "|" ";" pair "${pair}")
  list(GET pair 0 bundle)
  list(GET pair 1 declaration)
  file(READ ${WORK}/build/bin/${bundle}/Contents/Info.plist built)
  file(READ ${DECLARATIONS}/${declaration} checked)
  if(NOT built STREQUAL checked)
    message(SEND_ERROR "${bundle}: its Info.plist is not the one that the tests check")
  endif()
endforeach()
