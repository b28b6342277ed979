#include <tools/lumaro/Arguments.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/Inputs.h>
#include <tools/lumaro/MemoryLimit.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <system_error>

namespace Tool {

namespace {

const std::string INPUTS = "inputs";
const std::string TRANSLATE = "--translate";
const std::string MATRIX = "--matrix";
const std::string UNIT_SCALE = "--unit-scale";
const std::string DISTANCES = "--distances";

std::string extensionOf(const std::string& path) {
    std::string extension = utf8FromPath(pathFromUtf8(path).extension());
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

InputKind kindOf(const std::string& path) {
    const std::string extension = extensionOf(path);
    if (extension == ".obj") {
        return InputKind::Mesh;
    }
    if (extension == ".png" || extension == ".jpg" || extension == ".jpeg" ||
        !cubeFaces(pathFromUtf8(path)).empty()) {
        return InputKind::Panorama;
    }
    return InputKind::Store;
}

void setPlacement(Input& input, const std::string& option, const std::string& text) {
    if (input.placement != Eigen::Matrix4d::Identity()) {
        throw UsageError("the input '" + input.path + "' is already placed");
    }
    if (option == MATRIX) {
        input.placement = parseMatrix(text);
    } else {
        input.placement.topRightCorner<3, 1>() = parsePoint(text).vector();
    }
}

void apply(Input& input, const std::string& option, const std::string& text) {
    if (option == TRANSLATE || option == MATRIX) {
        setPlacement(input, option, text);
    } else if (option == UNIT_SCALE) {
        if (input.kind != InputKind::Mesh) {
            throw UsageError("'" + input.path + "' is not a mesh");
        }
        input.unitScale = parseNumber(text, 1e-9, 1e9);
    } else if (option == DISTANCES) {
        if (input.kind != InputKind::Panorama) {
            throw UsageError("'" + input.path + "' is not a panorama");
        }
        input.distances = text;
    }
}

}  // namespace

void addInputOptions(CLI::App& command) {
    // What they hold is read in the order in which it was given, by parsedInputs().
    const auto add = [&command](const std::string& name, const std::string& description) {
        return command.add_option_function<std::vector<std::string>>(
            name, [](const std::vector<std::string>&) {}, description);
    };
    add(INPUTS,
        "What to draw, all in one scene: stores, OBJ meshes (.obj) and panoramas (an equirectangular .png or "
        ".jpg, or a folder with the cube faces px, nx, py, ny, pz, nz)")
        ->required()
        ->type_name("INPUT");
    const auto addFor = [&add](const std::string& name, const char* typeName,
                               const std::string& description) {
        add(name, description)->type_name(typeName)->allow_extra_args(false);
    };
    addFor(TRANSLATE, "X,Y,Z", "Moves the input before it; a panorama's centre goes there");
    addFor(MATRIX, "M11,…,M44",
           "Places the input before it: the 16 numbers, row by row, of the matrix from its coordinates to "
           "absolute ones");
    addFor(UNIT_SCALE, "S", "Length of the unit of the mesh before it, in the scene's unit (default 1)");
    addFor(
        DISTANCES, "FILE",
        "Distances for the panorama before it: a 16-bit PNG in millimetres or a PFM in metres, or a folder "
        "of six");
}

void addMemoryLimitOption(CLI::App& command) {
    command
        .add_option_function<std::string>(
            "--memory-limit",
            [](const std::string& text) {
                try {
                    setMemoryLimit(parseBytes(text));
                } catch (const UsageError& error) {
                    throw CLI::ValidationError("--memory-limit", error.what());
                }
            },
            "Most memory that each store, mesh, panorama or polygon file may ask for, as 512M or 2G "
            "(default: 2G "
            "for a store, 64G for a mesh, 16G for a panorama)")
        ->type_name("SIZE");
}

std::vector<Input> parsedInputs(const CLI::App& command) {
    std::vector<Input> inputs;
    std::map<const CLI::Option*, size_t> taken;
    for (const CLI::Option* const option : command.parse_order()) {
        const std::string name = option->get_name();
        if (name != INPUTS && name != TRANSLATE && name != MATRIX && name != UNIT_SCALE &&
            name != DISTANCES) {
            continue;
        }
        const std::string& text = option->results().at(taken[option]++);
        if (name == INPUTS) {
            inputs.push_back({text, kindOf(text), Eigen::Matrix4d::Identity(), 1.0, {}});
            continue;
        }
        try {
            if (inputs.empty()) {
                throw UsageError("there is no input before it");
            }
            apply(inputs.back(), name, text);
        } catch (const UsageError& error) {
            throw CLI::ValidationError(name, error.what());
        }
    }
    return inputs;
}

std::vector<std::filesystem::path> cubeFaces(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> faces;
    for (const char* const name : {"px", "nx", "py", "ny", "pz", "nz"}) {
        for (const char* const extension : {".png", ".jpg", ".jpeg", ".pfm"}) {
            std::error_code ignored;
            std::filesystem::path file = folder / (std::string(name) + extension);
            if (std::filesystem::is_regular_file(file, ignored)) {
                faces.push_back(std::move(file));
                break;
            }
        }
    }
    return faces.size() == 6 ? faces : std::vector<std::filesystem::path>();
}

}  // namespace Tool
