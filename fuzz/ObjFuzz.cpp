// The input is an OBJ file; behind the last zero byte, if there is one, the file "m.mtl" beside it.

#include <fuzz/FuzzTarget.h>
#include <render/renderables/ObjMeshLoader.h>

#include <tests/support/PotreeFixture.h>

#include <cmath>
#include <iostream>
#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Support::TemporaryFolder folder;
    static const bool isQuiet = std::cout.rdbuf(nullptr) != nullptr;
    static_cast<void>(isQuiet);
    const std::string text = Fuzz::textOf(data, size);
    const std::size_t split = text.rfind('\0');
    folder.write("mesh.obj", text.substr(0, split));
    folder.write("m.mtl", split < size ? text.substr(split + 1) : std::string());
    try {
        Render::ObjMeshLoader(folder.path() / "mesh.obj").load([](const auto& vertices) {
            Fuzz::require(vertices.size() % 3 == 0);
            for (const Render::VertexPosNormalTexCoordColor& vertex : vertices) {
                Fuzz::require(std::isfinite(vertex.position.x()) && std::isfinite(vertex.position.y()) &&
                              std::isfinite(vertex.position.z()));
            }
        });
    } catch (const std::runtime_error&) {
    }
    return 0;
}
