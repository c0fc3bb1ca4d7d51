/* Gives the shared library a C source, so that it links as C, without the C++ run-time library. */
typedef int anchor;
