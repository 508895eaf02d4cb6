# What a release contains. `scripts/package` makes it.
install(TARGETS tallowin RUNTIME DESTINATION bin)
get_property(languages GLOBAL PROPERTY TALLOW_LANGUAGES)
foreach(language ${languages})
  install(FILES $<TARGET_FILE:tallowin${language}> DESTINATION bin)
endforeach()
install(TARGETS tallow-feed tallow-host tallow-inspect RUNTIME DESTINATION bin)
if(TARGET tallow-load)
  install(TARGETS tallow-load csv RUNTIME DESTINATION bin)
  install(FILES ${TALLOW_LIBCSV_DIR}/COPYING.LESSER DESTINATION .)
endif()
install(DIRECTORY docs DESTINATION .)
# What the author of a host compiles with; by itself with `cmake --install BUILD --component host`.
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tallow-config-version.cmake
                                 COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(DIRECTORY include DESTINATION . COMPONENT host)
install(DIRECTORY examples DESTINATION . COMPONENT host
        FILES_MATCHING PATTERN "*.cpp" PATTERN "*.c" PATTERN "*.js")
install(FILES cmake/tallow-config.cmake ${PROJECT_BINARY_DIR}/tallow-config-version.cmake
        DESTINATION lib/cmake/tallow COMPONENT host)
install(FILES README.md LICENSE THIRD_PARTY_NOTICES.md CHANGELOG.md SECURITY.md ARCHITECTURE.md
              CONTRIBUTING.md DESTINATION .)
