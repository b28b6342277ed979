#include "shaders/colorprocessing.hlsl"

#define CLIPPING_PLANES_MAX_COUNT 8

cbuffer cbPerFrame : register(b0)
{
    float4x4 model;
    float4x4 inv_model;
    float4x4 view;
    float4x4 proj;
    float4x4 model_view_proj;
    float4x4 inv_model_view_proj;
    float4x4 inv_view_proj;
    // In model coordinates; those not in use are zero.
    float4 clipping_planes[CLIPPING_PLANES_MAX_COUNT];
    float4 uniformColor;
    float4 tomographicColor;
    float4 distance_plane;
    float near;
    float far;
    float width;
    float height;
    float aspect;
    // Model units.
    float point_size;
    float root_node_size;
    // Pixels.
    float max_point_size;
    float tomo_contrast;
    float model_scale;
    float min_distance;
    float max_distance;
    float min_distance_pass_fail;
    float max_distance_pass_fail;
    float min_distance_warn;
    float max_distance_warn;
    int color_map;
    int point_render_mode;
    int use_signed_distance;
    int selected;
    int use_cloud_colors_in_tomographic_render_modes;
};

cbuffer cbPerOctreeNode : register(b1)
{
    float3 node_min;
    uint node_index;
    uint node_depth;
};

// One texel a resident node, in level order. Red: mask of the resident children. Green and blue: high and low byte
// of the distance to the first child's texel; siblings follow one another.
Texture1D<float4> visibleNodes : register(t0);

struct vs_in
{
    float4 pos : POS;
    float4 col : COL;
    float intensity : INTENSITY;
    uint classIndex : CLASSINDEX;
    uint scanIndex : SCANINDEX;
    float distance : DISTANCE;
    uint vertexID : SV_VertexID;
};

struct ps_in
{
    float4 pos : SV_POSITION;
    float4 col : COL;
    float4 worldPosition : TEXCOORD1;
    // Not interpolated: a picked point is the stored one, to the last bit.
    nointerpolation float4 exactWorldPosition : TEXCOORD2;
    float2 uv : TEXCOORD0;
};

struct ps_out
{
    float4 color : SV_TARGET0;
    float4 worldPosition : SV_TARGET1;
    float4 exactWorldPosition : SV_TARGET2;
};

static const uint maxSteps = 22;

bool isOrthographic()
{
    return proj._44 == 1.0;
}

float nodeSize(uint depth)
{
    return root_node_size / exp2(float(depth));
}

// Level of the deepest resident node that holds a point of this node; pos in model coordinates.
uint getLodLevel(float3 pos)
{
    uint texel = node_index;
    uint depth = node_depth;
    float3 minCorner = node_min;
    [loop] for (uint step = 0; step < maxSteps; ++step) {
        const float size = nodeSize(depth);
        const float3 upper = (pos - minCorner) / size >= 0.5 ? float3(1.0, 1.0, 1.0) : float3(0.0, 0.0, 0.0);
        const uint childIndex = uint(4.0 * upper.x + 2.0 * upper.y + upper.z);
        // A normalised byte times 255 may come out a little below the byte.
        const uint3 bytes = uint3(round(visibleNodes.Load(int2(texel, 0)).rgb * 255.0));
        const uint childBit = 1u << childIndex;
        if ((bytes.r & childBit) == 0)
            return depth;
        texel += (bytes.g << 8) + bytes.b + countbits(bytes.r & (childBit - 1));
        depth += 1;
        minCorner += 0.5 * size * upper;
    }
    return depth;
}

// Before the division by w; pos in model coordinates.
float pointSize(float3 pos)
{
    return model_scale * point_size / exp2(float(getLodLevel(pos))) * abs(proj._22);
}

// A point whose four corners all lie outside the clip volume.
ps_in culled()
{
    ps_in output;
    output.pos = float4(2.0, 2.0, 2.0, 0.0);
    output.col = float4(0.0, 0.0, 0.0, 0.0);
    output.worldPosition = float4(0.0, 0.0, 0.0, 0.0);
    output.exactWorldPosition = float4(0.0, 0.0, 0.0, 0.0);
    output.uv = float2(0.0, 0.0);
    return output;
}

// In the modes without a distance.
float4 pointColor(vs_in input)
{
    if (point_render_mode == 6 || (selected != 0 && point_render_mode == 0)) {
        const float grey = (input.col.r + input.col.g + input.col.b) / 3.0;
        return float4(grey, grey, grey, 1.0) * uniformColor;
    }
    switch (point_render_mode) {
    case 0:
    case 3:
        return input.col;
    case 5:
        return gray(input.intensity);
    default:
        return float4(0.0, 0.0, 0.0, 0.0);
    }
}

ps_in vs_main(vs_in input)
{
    for (uint i = 0; i < CLIPPING_PLANES_MAX_COUNT; ++i) {
        if (dot(input.pos, clipping_planes[i]) < 0.0)
            return culled();
    }

    const float4 exactWorldPosition = mul(model, input.pos);
    float4 col;
    // One call for both distance modes: it brings all colour maps along, which take most of the compiler's time.
    [branch] if (point_render_mode == 4 || point_render_mode == 7) {
        float d = input.distance;
        if (point_render_mode == 4)
            d = planeDistance(exactWorldPosition.xyz, distance_plane);
        if (use_signed_distance == 0)
            d = abs(d);
        if (d < min_distance || d > max_distance)
            return culled();
        col = colorizeByDistance(d, min_distance, max_distance, color_map, min_distance_pass_fail,
                                 max_distance_pass_fail, min_distance_warn, max_distance_warn);
    } else {
        col = pointColor(input);
    }

    const float4 pos = mul(model_view_proj, input.pos);
    // At least one pixel wide, at most max_point_size pixels.
    const float size = clamp(pointSize(input.pos.xyz), pos.w / height, max_point_size / height * pos.w);
    const float2 corner = float2((input.vertexID & 2) != 0 ? 1.0 : -1.0, (input.vertexID & 1) != 0 ? 1.0 : -1.0);
    const float4 offset = float4(corner * float2(size / aspect, size), 0.0, 0.0);

    ps_in output;
    output.pos = pos + offset;
    output.col = col;
    // Moved along with the corner, so that a position read back anywhere on the disc is its own.
    output.worldPosition = exactWorldPosition + mul(inv_view_proj, offset);
    output.exactWorldPosition = exactWorldPosition;
    output.uv = corner;
    return output;
}

ps_out ps_main(ps_in input)
{
    const float radius = length(input.uv);
    if (radius > 1.0)
        discard;

    ps_out output;
    output.worldPosition = input.worldPosition;
    output.exactWorldPosition = input.exactWorldPosition;
    output.color = input.col;
    if (point_render_mode == 1 || point_render_mode == 2) {
        float3 c = tomographicColor.rgb;
        if (use_cloud_colors_in_tomographic_render_modes != 0)
            c = uniformColor.rgb;
        if (point_render_mode == 1)
            c = 1.0 - c;
        output.color = float4(c, tomo_contrast * smoothstep(0.0, 1.0, 1.0 - radius));
    }
    return output;
}
