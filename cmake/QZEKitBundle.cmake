# qzekit_add_bundle: builds a component library and lays out a complete
# bundle folder around it, ready to be copied below a host's extensions/.
#
#   qzekit_add_bundle(<name>
#       SOURCES <source>...
#       MANIFEST <manifest template>
#       [RESOURCES <folder>]              copied into resources/
#       [OUTPUT_DIRECTORY <folder>]       default: <build>/bin/extensions/<name>
#       [OUTPUT_NAME <file name>]         the library's name without suffix; default <name>
#       [SIGN_CERT <pem> SIGN_KEY <pem> [SIGN_CHAIN <pem>]])
#
# <name> is the library target: add sources, include folders and libraries to
# it as to any other. The bundle is
#
#   <OUTPUT_DIRECTORY>/manifest.json      the template, filled in once the library is built
#   <OUTPUT_DIRECTORY>/bin/<library>      <name>.so, or <name>.dll on Windows
#   <OUTPUT_DIRECTORY>/resources/
#
# The template is read by configure_file(@ONLY) with these placeholders:
#
#   @QZEKIT_LIBRARY_FILE@   the library's file name, e.g. "mainEntry": "bin/@QZEKIT_LIBRARY_FILE@"
#   @QZEKIT_LIB_FILE_MD5@   MD5 of the whole library file as built (and signed), 32 lower-case hex
#   @QZEKIT_SIGN_MD5@       signMD5 from "qzekit sign"; empty when the bundle is not signed
#
# Signing runs "qzekit sign" on the library before its MD5 is taken. The tool
# is the kit's own: the one built beside it in the kit's build, the installed
# one for a project that found the kit with find_package. A cross-build can't
# run the target's tool: set QZEKIT_SIGN_TOOL to a qzekit built for the build
# machine (with the same salt as the kit).
#
# On Linux the library is linked with --no-undefined, so that a plug-in that
# forgets a library fails to link here as it would on Windows (skipped under
# sanitizers, whose runtime is resolved at load time), and gets a RUNPATH of
# $ORIGIN, so that its own dependencies in bin/ are found. The target
# property QZEKIT_BUNDLE_DIRECTORY holds the bundle folder.

set_property(GLOBAL PROPERTY QZEKIT_BUNDLE_MANIFEST_SCRIPT
             "${CMAKE_CURRENT_LIST_DIR}/QZEKitBundleManifest.cmake")

function(qzekit_add_bundle name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG ""
    "MANIFEST;RESOURCES;OUTPUT_DIRECTORY;OUTPUT_NAME;SIGN_CERT;SIGN_KEY;SIGN_CHAIN" "SOURCES")
  if(ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "qzekit_add_bundle(${name}): unknown arguments ${ARG_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT ARG_SOURCES)
    message(FATAL_ERROR "qzekit_add_bundle(${name}): SOURCES is required")
  endif()
  if(NOT ARG_MANIFEST)
    message(FATAL_ERROR "qzekit_add_bundle(${name}): MANIFEST is required")
  endif()
  if((ARG_SIGN_CERT AND NOT ARG_SIGN_KEY) OR (ARG_SIGN_KEY AND NOT ARG_SIGN_CERT)
     OR (ARG_SIGN_CHAIN AND NOT ARG_SIGN_CERT))
    message(FATAL_ERROR "qzekit_add_bundle(${name}): SIGN_CERT and SIGN_KEY go together")
  endif()
  if(NOT TARGET QZExtensionKit::qzextensionkit)
    message(FATAL_ERROR "qzekit_add_bundle(${name}): no QZExtensionKit::qzextensionkit; "
                        "call find_package(QZExtensionKit) first")
  endif()

  get_filename_component(_template "${ARG_MANIFEST}" ABSOLUTE)
  if(ARG_OUTPUT_DIRECTORY)
    get_filename_component(_root "${ARG_OUTPUT_DIRECTORY}" ABSOLUTE BASE_DIR
                           "${CMAKE_CURRENT_BINARY_DIR}")
  else()
    set(_root "${CMAKE_BINARY_DIR}/bin/extensions/${name}")
  endif()
  set(_output_name "${name}")
  if(ARG_OUTPUT_NAME)
    set(_output_name "${ARG_OUTPUT_NAME}")
  endif()

  add_library(${name} MODULE ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE QZExtensionKit::qzextensionkit)
  # $<1:...> keeps multi-configuration generators from adding a folder per
  # configuration: the manifest names bin/<library> exactly.
  set_target_properties(${name} PROPERTIES
    OUTPUT_NAME "${_output_name}"
    PREFIX ""
    SUFFIX "${CMAKE_SHARED_LIBRARY_SUFFIX}"
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY "$<1:${_root}/bin>"
    RUNTIME_OUTPUT_DIRECTORY "$<1:${_root}/bin>")
  if(NOT WIN32 AND NOT APPLE)
    # Only $ORIGIN, also in the build tree: the host has loaded the kit
    # already, and a bundle must not point into the machine it was built on.
    set_target_properties(${name} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
    target_link_options(${name} PRIVATE "LINKER:--enable-new-dtags")
    set(_flags "${CMAKE_CXX_FLAGS} ${CMAKE_SHARED_LINKER_FLAGS} ${CMAKE_MODULE_LINKER_FLAGS}")
    if(NOT QZEKIT_SANITIZE AND NOT _flags MATCHES "-fsanitize")
      target_link_options(${name} PRIVATE "LINKER:--no-undefined")
    endif()
  endif()

  get_property(_script GLOBAL PROPERTY QZEKIT_BUNDLE_MANIFEST_SCRIPT)
  set(_manifest "${_root}/manifest.json")
  set(_args -DLIBRARY=$<TARGET_FILE:${name}> -DTEMPLATE=${_template} -DOUTPUT=${_manifest})
  set(_depends ${name} ${_template} ${_script})
  if(ARG_SIGN_CERT)
    foreach(_var SIGN_CERT SIGN_KEY SIGN_CHAIN)
      if(ARG_${_var})
        get_filename_component(ARG_${_var} "${ARG_${_var}}" ABSOLUTE)
        list(APPEND _args -D${_var}=${ARG_${_var}})
        list(APPEND _depends ${ARG_${_var}})
      endif()
    endforeach()
    if(QZEKIT_SIGN_TOOL)
      list(APPEND _args -DSIGN_TOOL=${QZEKIT_SIGN_TOOL})
    elseif(CMAKE_CROSSCOMPILING)
      message(FATAL_ERROR "qzekit_add_bundle(${name}): signing in a cross-build needs a qzekit "
                          "tool that runs on this machine: pass -DQZEKIT_SIGN_TOOL=<path to qzekit>")
    elseif(TARGET QZExtensionKit::qzekit)
      list(APPEND _args -DSIGN_TOOL=$<TARGET_FILE:QZExtensionKit::qzekit>)
      get_target_property(_tool QZExtensionKit::qzekit ALIASED_TARGET)
      if(_tool)
        list(APPEND _depends ${_tool})
      endif()
    else()
      message(FATAL_ERROR "qzekit_add_bundle(${name}): signing needs the qzekit tool, which this "
                          "kit was built without: pass -DQZEKIT_SIGN_TOOL=<path to qzekit>")
    endif()
  endif()
  add_custom_command(
    OUTPUT ${_manifest}
    COMMAND ${CMAKE_COMMAND} ${_args} -P ${_script}
    DEPENDS ${_depends}
    COMMENT "Writing the manifest of the ${name} bundle"
    VERBATIM)
  add_custom_target(${name}_bundle ALL DEPENDS ${_manifest})

  file(MAKE_DIRECTORY "${_root}/bin" "${_root}/resources")
  if(ARG_RESOURCES)
    get_filename_component(_resources "${ARG_RESOURCES}" ABSOLUTE)
    file(GLOB_RECURSE _files CONFIGURE_DEPENDS RELATIVE "${_resources}" "${_resources}/*")
    foreach(_file IN LISTS _files)
      configure_file("${_resources}/${_file}" "${_root}/resources/${_file}" COPYONLY)
    endforeach()
  endif()
  set_target_properties(${name} PROPERTIES QZEKIT_BUNDLE_DIRECTORY "${_root}")
endfunction()
