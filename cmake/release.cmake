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
install(DIRECTORY include docs DESTINATION .)
install(DIRECTORY examples DESTINATION . FILES_MATCHING PATTERN "*.cpp")
install(FILES README.md LICENSE THIRD_PARTY_NOTICES.md CHANGELOG.md SECURITY.md ARCHITECTURE.md
              CONTRIBUTING.md DESTINATION .
        OPTIONAL)
