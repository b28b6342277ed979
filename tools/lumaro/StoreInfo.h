#pragma once

#include <octree/Location.h>
#include <octree/Octree.h>

#include <math/NBoundingBox.h>

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

namespace Tool {

/// What `lumaro info` tells about a store; all coordinates are absolute.
struct StoreInfo {
    std::string location;
    std::string format;    ///< "Potree 2.0" or "Entwine"
    std::string encoding;  ///< as the store names it
    uint64_t points = 0;
    Math::NBoundingBox<double, 3> bounds;  ///< around the points
    Math::NBoundingBox<double, 3> cube;    ///< of the root node
    double spacing = 0.0;                  ///< between points of level 0
    size_t nodes = 0;
    size_t levels = 0;  ///< 1 for a store of one node
    std::vector<Octree::AttributeInfo> attributes;
};

/// Reads the store's description and its whole hierarchy, no points. When stopped, counts stay incomplete or
/// Octree::OpenStopped is thrown.
StoreInfo readStoreInfo(const Octree::Location& location, const std::stop_token& stop = {});

/// Whether the points of the store have colours of their own. Throws Octree::OpenStopped when stopped.
bool hasColors(const Octree::Location& location, const std::stop_token& stop);

/// For a reader: one line a fact, then a table of the attributes.
std::string infoText(const StoreInfo& info);

/// For a program: one JSON object.
std::string infoJson(const StoreInfo& info);

}  // namespace Tool
