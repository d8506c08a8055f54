# Which headers an installation holds: those that a caller may use. A header is one of them unless it is named here.
# Of Platform, which is inside as a whole, those are named that the others are made of. A header that is installed
# includes no other: Tests/Install/PkgConfig.sh compiles them where there are no more.

# Of the rooms of each library, by their names in the folder of the library; "." is the folder itself.
set(TarnwellCore_INSIDE
  Actions/LeftoverSearch Actions/ResumeOnce
  Analysis/CleanupRuleCoding Analysis/DuplicateSearch Analysis/DuplicateWorker Analysis/InstallerStem
  Analysis/SQLiteSidecarFiles Analysis/SharingIndex Analysis/SpaceSaverMeasuring Analysis/StepComparison
  Classification/FileCategoryMemo Classification/FileClassifierTables Classification/NameTable
  Classification/UTTypeCache
  Layout/ChildWeights Layout/SizeOrder Layout/SliceLayout
  Scanning/DirectoryReader Scanning/ExclusionIndex Scanning/FolderHandle Scanning/FolderPaths
  Scanning/HardlinkRegistry Scanning/LiveBatch Scanning/NodeFetch Scanning/NodeRuns
  Scanning/NodeSorter Scanning/PathMetadata Scanning/PathStep
  Scanning/ScanEngine Scanning/ScanQueue Scanning/ScanWorker Scanning/SharedFolder Scanning/TreeAggregation
  Scanning/TreeGraft
  Snapshots/EscapedPath Snapshots/SnapshotCoding
  Text/WordScan)
set(TarnwellCore_CLOSED_ROOMS Platform)
set(TarnwellCore_PUBLIC
  Platform/BlockLayout Platform/CloudItems Platform/ContentReading Platform/Date Platform/ExtentSharing
  Platform/FatalError Platform/FileCalls Platform/HeldSpace Platform/ItemMoving Platform/LocalDay Platform/MeasuredFile
  Platform/RawDirectoryEntry Platform/RegularExpression Platform/RunningPrograms Platform/SHA256 Platform/ScheduledJob Platform/SystemIndex Platform/UUID
  Platform/UnfairLock Platform/UserDefaults Platform/UserPaths Platform/VolumeUsage Platform/Volumes)

set(TarnwellCLIKit_INSIDE RowPath RowPieces SnapshotCommands)

# The installed headers of a library, at their paths in this tree. Folders of one system, two levels below the library,
# are never among them.
function(tarnwell_public_headers library variable)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
    "${PROJECT_SOURCE_DIR}/${library}/*.hpp" "${PROJECT_SOURCE_DIR}/${library}/*/*.hpp")
  foreach(room IN LISTS ${library}_CLOSED_ROOMS)
    list(FILTER headers EXCLUDE REGEX "^${library}/${room}/")
  endforeach()
  foreach(name IN LISTS ${library}_INSIDE)
    if(NOT EXISTS "${PROJECT_SOURCE_DIR}/${library}/${name}.hpp")
      message(FATAL_ERROR "cmake/TarnwellHeaders.cmake names ${library}/${name}.hpp, which is not there")
    endif()
    list(REMOVE_ITEM headers "${library}/${name}.hpp")
  endforeach()
  foreach(name IN LISTS ${library}_PUBLIC)
    list(APPEND headers "${library}/${name}.hpp")
  endforeach()
  list(SORT headers)
  set(${variable} "${headers}" PARENT_SCOPE)
endfunction()

# Makes <Library>/<Library>.hpp, which includes every header of the library that a caller may use.
function(tarnwell_umbrella_header library)
  tarnwell_public_headers(${library} headers)
  if(EXISTS "${TARNWELL_GENERATED}/${library}/Version.hpp")
    list(APPEND headers "${library}/Version.hpp")
  endif()
  list(TRANSFORM headers REPLACE "(.+)" "#include \"\\1\"")
  list(JOIN headers "\n" includes)
  file(CONFIGURE OUTPUT "${TARNWELL_GENERATED}/${library}/${library}.hpp" CONTENT
"#pragma once

// Everything of ${library} that a caller may use.

${includes}
" @ONLY)
endfunction()

set(TARNWELL_GENERATED "${PROJECT_BINARY_DIR}/generated")
configure_file(cmake/Version.hpp.in "${TARNWELL_GENERATED}/TarnwellCore/Version.hpp" @ONLY)
