#pragma once

#include <filesystem>
#include <string>

namespace Render {

/// The regular file that a file in `folder` names, in UTF-8: in that folder or one below it. Empty when there
/// is none, and for names that lead anywhere else: absolute ones, those of drives, machines and devices,
/// "..", and links out of the folder. A name is looked at before the system is asked about it.
std::filesystem::path fileWithin(const std::filesystem::path& folder, const std::string& name);

}  // namespace Render
