#include "all.cpp"
#include "layouts.h"

// Written by the caller: LAYOUT(NAME) for every exported class.
#define LAYOUT(name) {#name, sizeof(name), alignof(name)},
const Layout LAYOUTS[] = {
#include "classes.inc"
    {nullptr, 0, 0},
};
