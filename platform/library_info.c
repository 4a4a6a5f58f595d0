/* The shared library is assembled from the service's static libraries (whole archives);
   this unit only gives the link a source of its own and the library an identification
   string that `strings libzoomaf.so` shows on a board. */
__attribute__((used)) static const char zoomaf_ident[] = "zoomaf autofocus and zoom service";
