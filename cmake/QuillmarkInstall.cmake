# What `cmake --install` lays out. docs/packaging.md says what a packager adds to it.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CMAKE_INSTALL_DOCDIR share/doc/quillmark CACHE PATH "Documents")
include(GNUInstallDirs)

set(QM_EXTENSION "" CACHE PATH "The folder that `node extension/make.mjs FOLDER` has made; without it no extension is installed")

# One folder holds all that the launcher looks for beside itself.
set(program_dir "${CMAKE_INSTALL_LIBEXECDIR}/quillmark")
install(TARGETS QMChromeExtHost quillmark-tokens RUNTIME DESTINATION "${program_dir}")
install(TARGETS QMTokenDriver LIBRARY DESTINATION "${program_dir}")
file(GLOB scripts CONFIGURE_DEPENDS packaging/quillmark-*)
file(GLOB script_files CONFIGURE_DEPENDS packaging/*.py packaging/*.json)
install(PROGRAMS ${scripts} DESTINATION "${program_dir}")
install(FILES ${script_files} QMChromeExtHost/QMLogo.png DESTINATION "${program_dir}")

# A command is what has a manual page.
file(GLOB manual_pages CONFIGURE_DEPENDS packaging/man/*.1)
install(FILES ${manual_pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
file(RELATIVE_PATH to_program "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBEXECDIR}/quillmark")
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/commands")
foreach(page ${manual_pages})
  get_filename_component(command "${page}" NAME_WE)
  file(CREATE_LINK "${to_program}/${command}" "${CMAKE_BINARY_DIR}/commands/${command}" SYMBOLIC)
  install(FILES "${CMAKE_BINARY_DIR}/commands/${command}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
endforeach()

file(GLOB documents CONFIGURE_DEPENDS *.md)
install(FILES ${documents} DESTINATION "${CMAKE_INSTALL_DOCDIR}")
file(GLOB readmes RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" CONFIGURE_DEPENDS packages/*/README.md)
foreach(readme IN LISTS readmes)
  cmake_path(GET readme PARENT_PATH folder)
  install(FILES "${readme}" DESTINATION "${CMAKE_INSTALL_DOCDIR}/${folder}")
endforeach()
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" FILES_MATCHING PATTERN "*.md" PATTERN "*.png")

set(data_dir "${CMAKE_INSTALL_DATADIR}/quillmark")
install(FILES extension/quillmark.js extension/quillmark.d.ts DESTINATION "${data_dir}")
if(QM_EXTENSION)
  install(PROGRAMS packaging/pack-extension DESTINATION "${data_dir}")
  install(DIRECTORY "${QM_EXTENSION}/chromium" "${QM_EXTENSION}/firefox" DESTINATION "${data_dir}/extension")
  install(DIRECTORY "${QM_EXTENSION}/example" DESTINATION "${data_dir}")
endif()
