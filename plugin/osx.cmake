# The plug-in for macOS browsers: "Corvane Web.plugin", a loadable bundle
# whose Info.plist declares the MIME type. The core with the Objective-C++
# classes of src/osx (manual retain/release) in place of the Linux ones.
enable_language(OBJCXX)
set(CMAKE_OBJCXX_STANDARD 17)

file(GLOB CORVANE_CORE_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_SOURCE_DIR}/src/*.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/src/osx/*.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/src/osx/*.mm)

add_library(corvane_core STATIC ${CORVANE_CORE_SOURCES})
target_include_directories(corvane_core PUBLIC
  ${CMAKE_CURRENT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR}/src/osx ${CMAKE_CURRENT_SOURCE_DIR}/include)
# The panels keep the calls the older systems need (filenames,
# runModalForDirectory:file:), which newer SDKs mark deprecated.
target_compile_options(corvane_core PRIVATE
  $<$<COMPILE_LANGUAGE:OBJCXX>:-fno-objc-arc -Wno-deprecated-declarations>)
target_compile_definitions(corvane_core PUBLIC XP_MACOSX=1)
target_link_libraries(corvane_core PUBLIC cv_runtime PkgConfig::YAJL Threads::Threads
  "-framework Cocoa" "-framework Carbon" "-framework CoreServices" "-framework ApplicationServices")
set_target_properties(corvane_core PROPERTIES CXX_VISIBILITY_PRESET hidden OBJCXX_VISIBILITY_PRESET hidden)

add_subdirectory(npapi)
