# Helpers shared by every library, test and tool of the project.

set(VANTRO_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
set(VANTRO_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VantroAccount)

# Installed programs and libraries find the project's libraries relative to themselves, so a prefix
# works wherever it is installed or moved to, without LD_LIBRARY_PATH: a program in bin/ looks in
# ../lib, a library next to itself. (The QML plugin, further down, sets its own.)
file(RELATIVE_PATH VANTRO_BIN_TO_LIB /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN/${VANTRO_BIN_TO_LIB};$ORIGIN")

# vantro_add_library(<target> EXPORT_NAME <Name> HEADER_DIR <Folder>
#                    SOURCES ... PUBLIC_HEADERS ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
#
# Builds a shared library exported as Vantro::<Name>. Its public headers stay in the flat source
# folder; forwarding headers under <build>/include/<Folder>/ let the tree include them exactly as an
# installed application does (#include <Folder/name.h>), and the headers install into <Folder>/.
function(vantro_add_library target)
    cmake_parse_arguments(ARG "" "EXPORT_NAME;HEADER_DIR" "SOURCES;PUBLIC_HEADERS;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
    add_library(${target} SHARED ${ARG_SOURCES} ${ARG_PUBLIC_HEADERS})
    add_library(Vantro::${ARG_EXPORT_NAME} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${ARG_EXPORT_NAME}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)

    string(TOLOWER ${target} lower)
    set(generated ${VANTRO_GENERATED_INCLUDE_DIR}/${ARG_HEADER_DIR})
    # <LIBRARY>_AUTOTEST_EXPORT marks internal classes that the project's own tests and benchmarks
    # reach: exported only in a build that builds those, hidden in every other.
    string(TOUPPER ${target} upper)
    if(VANTRO_BUILD_TESTS OR VANTRO_BUILD_BENCHMARKS)
        set(autotest_export "${upper}_EXPORT")
    else()
        set(autotest_export "")
    endif()
    set(autotest_content "\n#define ${upper}_AUTOTEST_EXPORT ${autotest_export}\n")
    generate_export_header(${target} EXPORT_FILE_NAME ${generated}/${lower}_export.h
        CUSTOM_CONTENT_FROM_VARIABLE autotest_content)
    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        get_filename_component(absolute ${header} ABSOLUTE)
        get_filename_component(name ${header} NAME)
        file(CONFIGURE OUTPUT ${generated}/${name} CONTENT "#include \"${absolute}\"\n")
    endforeach()

    target_include_directories(${target}
        PUBLIC $<BUILD_INTERFACE:${VANTRO_GENERATED_INCLUDE_DIR}>
               $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
        PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})

    install(TARGETS ${target} EXPORT VantroAccountTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(FILES ${ARG_PUBLIC_HEADERS} ${generated}/${lower}_export.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${ARG_HEADER_DIR})
    # The API reference is made from exactly the headers that are installed.
    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        get_filename_component(absolute ${header} ABSOLUTE)
        set_property(GLOBAL APPEND PROPERTY VANTRO_INSTALLED_HEADERS ${absolute})
    endforeach()
endfunction()

# vantro_add_test(<name> SOURCES ... [LIBS ...] [ENVIRONMENT ...] [TIMEOUT seconds])
#
# One QtTest executable registered with CTest. Every test process gets its own profile location
# below the build tree, so no test ever reads or writes a real user's profile.
function(vantro_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;ENVIRONMENT;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE Qt5::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT}
        LABELS "${ARG_LABELS}"
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;VANTRO_PROFILE_LOCATION=${CMAKE_CURRENT_BINARY_DIR}/profiles/${name};${ARG_ENVIRONMENT}")
endfunction()

# Writes and installs the package configuration that find_package(VantroAccount) reads.
function(vantro_install_package)
    install(EXPORT VantroAccountTargets
        NAMESPACE Vantro::
        FILE VantroAccountTargets.cmake
        DESTINATION ${VANTRO_CMAKE_INSTALL_DIR})
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VantroAccountConfig.cmake.in
        ${PROJECT_BINARY_DIR}/VantroAccountConfig.cmake
        INSTALL_DESTINATION ${VANTRO_CMAKE_INSTALL_DIR})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantroAccountConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/VantroAccountConfig.cmake
                  ${PROJECT_BINARY_DIR}/VantroAccountConfigVersion.cmake
        DESTINATION ${VANTRO_CMAKE_INSTALL_DIR})
endfunction()
