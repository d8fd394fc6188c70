# Libraries of the system. Heavy ones are linked only to the folders that wrap them.
list(APPEND CMAKE_MODULE_PATH /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/cmake/OpenVDB)
find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_package(PNG REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(OpenEXR REQUIRED)
find_package(Imath REQUIRED)
find_package(TBB REQUIRED)
find_package(embree 3 REQUIRED)
find_package(hwy REQUIRED)

find_path(BLOSC_INCLUDE blosc.h REQUIRED)
find_library(BLOSC_LIBRARY blosc REQUIRED)
add_library(nimbra_blosc INTERFACE)
target_include_directories(nimbra_blosc SYSTEM INTERFACE ${BLOSC_INCLUDE})
target_link_libraries(nimbra_blosc INTERFACE ${BLOSC_LIBRARY})

find_path(OPENVDB_INCLUDE openvdb/openvdb.h REQUIRED)
find_library(OPENVDB_LIBRARY openvdb REQUIRED)
add_library(nimbra_openvdb INTERFACE)
target_include_directories(nimbra_openvdb SYSTEM INTERFACE ${OPENVDB_INCLUDE})
target_link_libraries(nimbra_openvdb INTERFACE ${OPENVDB_LIBRARY} TBB::tbb Imath::Imath)
# The library's templates have static members that it shares with its users. With hidden visibility a
# program would keep copies of some of them, and the library would then find its own unset.
target_compile_options(nimbra_openvdb INTERFACE -fvisibility=default -fno-visibility-inlines-hidden)

find_path(HDF5_INCLUDE hdf5.h PATH_SUFFIXES hdf5/serial REQUIRED)
find_library(HDF5_LIBRARY NAMES hdf5_serial hdf5 REQUIRED)
add_library(nimbra_hdf5 INTERFACE)
target_include_directories(nimbra_hdf5 SYSTEM INTERFACE ${HDF5_INCLUDE})
target_link_libraries(nimbra_hdf5 INTERFACE ${HDF5_LIBRARY})

if(NIMBRA_TESTS)
  find_package(GTest REQUIRED)
endif()
if(NIMBRA_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()

# nimbra_library(<folder> SOURCES ... [LINK ...] [PRIVATE_LINK ...]): the static library of one folder
# of src/. LINK names what its headers need, PRIVATE_LINK what only its sources need.
function(nimbra_library folder)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
  add_library(nimbra_${folder} STATIC ${ARG_SOURCES})
  target_include_directories(nimbra_${folder} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(nimbra_${folder} PUBLIC ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
endfunction()

# nimbra_test(<folder> SOURCES ... [LINK ...]): the test program of one folder, linking that folder only.
function(nimbra_test folder)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(test_${folder} ${ARG_SOURCES} ${PROJECT_SOURCE_DIR}/tests/support/sanitizer_options.cpp)
  target_include_directories(test_${folder} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(test_${folder} PRIVATE
    NIMBRA_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data" NIMBRA_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(test_${folder} PRIVATE ${ARG_LINK} test_support GTest::gtest GTest::gtest_main)
  gtest_discover_tests(test_${folder} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 600)
endfunction()
