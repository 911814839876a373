# The shared library `kappar`: every component's objects, one export header, hidden by default.
include(GenerateExportHeader)
include(CMakePackageConfigHelpers)

get_property(components GLOBAL PROPERTY KAPPAR_COMPONENTS)
get_property(include_dirs GLOBAL PROPERTY KAPPAR_INCLUDE_DIRS)

add_library(kappar SHARED)
add_library(kappar::kappar ALIAS kappar)
foreach(c IN LISTS components)
    target_sources(kappar PRIVATE $<TARGET_OBJECTS:${c}>)
endforeach()
generate_export_header(kappar BASE_NAME kappar EXPORT_MACRO_NAME KAPPAR_API
    EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/include/kappar/kappar_export.h)
set_target_properties(kappar PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINKER_LANGUAGE CXX)

foreach(d IN LISTS include_dirs)
    target_include_directories(kappar PUBLIC $<BUILD_INTERFACE:${d}>)
endforeach()
target_include_directories(kappar PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(kappar PUBLIC cxx_std_20)

install(TARGETS kappar EXPORT kapparTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(d IN LISTS include_dirs)
    install(DIRECTORY ${d}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/kappar/kappar_export.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kappar)
install(EXPORT kapparTargets NAMESPACE kappar:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kappar)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kapparConfig.cmake.in
    ${PROJECT_BINARY_DIR}/kapparConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kappar)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kapparConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kapparConfig.cmake ${PROJECT_BINARY_DIR}/kapparConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kappar)
