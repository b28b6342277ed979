// What windows.h does to names when NOMINMAX is not defined. Headers of others come first: whether they bear it is
// the host's own business. The list of standard ones is written by the caller.
#include "standard.inc"

#include <Eigen/Dense>
#include <d3d11.h>
#include <d3dcompiler.h>

#define min(a, b) (((a) < (b)) ? (a) : (b))
#define max(a, b) (((a) > (b)) ? (a) : (b))

#include "all.cpp"
