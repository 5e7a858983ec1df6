// The shared library is assembled from the component archives; it needs one
// source of its own for CMake to create it.
