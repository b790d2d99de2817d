// The translation unit that builds the shared precompiled header (see the root CMakeLists.txt).
