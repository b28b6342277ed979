#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Support {

/// Points made of random numbers, the same on every platform.
struct RandomCloud {
    enum class Kind {
        /// Every field steps, jumps, repeats or goes to an extreme at random; several flight lines and
        /// scanner
        /// channels take turns, with up to the format's number of returns a pulse.
        Wild,
        /// Hardly anything changes from point to point.
        Still,
        /// As Still, but for the GPS times: several flight lines whose steps grow, shrink, turn and jump.
        Times
    };

    std::size_t recordLength() const;
    /// One record after another, as they stand in an uncompressed file.
    std::string records() const;
    /// A whole uncompressed file, version 1.4 from format 6 on and else 1.2.
    std::string lasFile() const;

    unsigned format = 0;
    std::size_t count = 0;
    std::size_t extraBytes = 0;
    Kind kind = Kind::Wild;
};

/// A cloud and the file of this folder's data/ that a public encoder made of it.
struct EncodedCloud {
    std::string name;
    RandomCloud cloud;
    /// Points a chunk; 0 when chunks vary.
    std::uint32_t chunkSize = 0;
};

const std::vector<EncodedCloud>& encodedClouds();

}  // namespace Support
