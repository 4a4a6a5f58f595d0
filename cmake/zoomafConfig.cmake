# find_package(zoomaf) gives the imported target zoomaf::zoomaf: libzoomaf.so and the
# include directory of its C headers (#include "zoomaf/app_pdaf.h").
include(${CMAKE_CURRENT_LIST_DIR}/zoomafTargets.cmake)
