#pragma once

#include <octree/HierarchyPage.h>

#include <filesystem>
#include <memory>
#include <stop_token>

namespace Entwine {

/// Reads one file of a store's hierarchy, a JSON object of point counts by node; -1 is a link. Nodes deeper
/// than OctreeNodeId::MAX_REPRESENTABLE_LEVEL are left out, their ancestors there have no children. An empty
/// file of the octree's root is a root without points. nullptr when stopped. Throws StoreError naming the
/// file, and the node where one is at fault, when the file is not to be had or is no such object, and as
/// Octree::HierarchyPage::make does.
std::unique_ptr<const Octree::HierarchyPage> readHierarchyFile(const std::filesystem::path& file,
                                                               Octree::OctreeNodeId root,
                                                               Octree::MemoryBudget& budget,
                                                               const std::stop_token& stop);

}  // namespace Entwine
