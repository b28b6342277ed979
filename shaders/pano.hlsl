#define MAX_TILES_PER_LEVEL 48

cbuffer cbConstant : register(b0)
{
    float4x4 viewProjection;
    float4x4 inverseModelViewProjection;
    float4x4 model;
    float4x4 inverseModelView;
    float zNear;
    float zFar;
    float scale;
    // 0 equirectangular, otherwise a cube map.
    uint projectionType;
    uint tileRows;
    uint tileColumns;
    uint colorLevels;
    uint depthLevels;
    // The finest level that has arrived.
    uint maxColorLevelPerTile[MAX_TILES_PER_LEVEL];
    uint maxDepthLevelPerTile[MAX_TILES_PER_LEVEL];
};

Texture2DArray<float4> panoColorL0 : register(t0);
Texture2DArray<float4> panoColorL1 : register(t1);
Texture2DArray<float4> panoColorL2 : register(t2);
Texture2DArray<float4> panoColorL3 : register(t3);
Texture2DArray<float4> panoDepthL0 : register(t4);
Texture2DArray<float4> panoDepthL1 : register(t5);
Texture2DArray<float4> panoDepthL2 : register(t6);
Texture2DArray<float4> panoDepthL3 : register(t7);
SamplerState samplerPano : register(s0);

struct ps_in
{
    float4 pos : SV_POSITION;
    float3 objPos : TEXCOORD0;
    nointerpolation float3 viewDir : TEXCOORD1;
};

struct ps_out
{
    float4 color : SV_TARGET0;
    float4 worldPosition : SV_TARGET1;
    float4 exactWorldPosition : SV_TARGET2;
    float depth : SV_DEPTH;
};

struct Tile
{
    uint index;
    float2 uv;
};

static const float pi = 3.14159265;

// Where the camera looks, in world space.
float3 forwardDirection()
{
    const float3 depthAxis = viewProjection[3].xyz;
    // An orthographic projection has none in its last row. What goes right and up tells it then.
    return normalize(any(depthAxis) ? depthAxis : cross(viewProjection[1].xyz, viewProjection[0].xyz));
}

// The same in object space. inverseModelView would be old after a move of the panorama: it follows the camera only.
float3 viewDirection()
{
    const float3x3 axes = transpose((float3x3)model);
    const float3x3 cofactors =
        float3x3(cross(axes[1], axes[2]), cross(axes[2], axes[0]), cross(axes[0], axes[1]));
    return normalize(mul(cofactors, forwardDirection()) * sign(dot(axes[0], cofactors[0])));
}

float3 unprojected(float4 pos)
{
    const float4 objPos = mul(inverseModelViewProjection, pos);
    return objPos.xyz / objPos.w;
}

// A quad over the whole picture, on the far plane: that of depth 1 or, in a reversed depth buffer, of depth 0.
ps_in vs_main(uint id : SV_VertexID)
{
    const float2 uv = float2((id >> 1) & 1, id & 1);
    ps_in output;
    output.pos = float4(-1.0 + 2.0 * uv, 1.0, 1.0);
    output.viewDir = viewDirection();
    const float3 atOne = unprojected(output.pos);
    const float3 atZero = unprojected(float4(output.pos.xy, 0.0, 1.0));
    output.objPos = dot(atOne - atZero, output.viewDir) > 0.0 ? atOne : atZero;
    return output;
}

// Where uv, which covers a whole face, meets the grid of tiles. At its far edges that is still the last tile.
Tile tileAt(float2 uv, uint face)
{
    const float2 grid = float2(tileColumns, tileRows);
    const float2 place = clamp(floor(uv * grid), 0.0, grid - 1.0);
    Tile tile;
    tile.uv = saturate(uv * grid - place);
    tile.index = face * tileRows * tileColumns + uint(place.y) * tileColumns + uint(place.x);
    return tile;
}

Tile equirectangularTile(float3 dir)
{
    // Straight up and down every azimuth is as good; atan2 and asin must not leave their domains.
    const float x = dir.x == 0.0 && dir.y == 0.0 ? 1.0 : dir.x;
    const float theta = 0.5 - atan2(dir.y, x) / (2.0 * pi);
    const float phi = 0.5 - asin(clamp(dir.z, -1.0, 1.0)) / pi;
    return tileAt(float2(theta, phi), 0);
}

// The faces as a cross:  4
//                      2 0 3 1
//                        5
Tile cubeTile(float3 dir)
{
    const float3 size = abs(dir);
    if (size.x >= size.y && size.x >= size.z)
    {
        const float sign = dir.x > 0.0 ? -1.0 : 1.0;
        return tileAt(0.5 * float2(dir.y * sign, -dir.z) / size.x + 0.5, dir.x > 0.0 ? 0 : 1);
    }
    if (size.y > size.z)
    {
        const float sign = dir.y > 0.0 ? 1.0 : -1.0;
        return tileAt(0.5 * float2(dir.x * sign, -dir.z) / size.y + 0.5, dir.y > 0.0 ? 2 : 3);
    }
    const float sign = dir.z > 0.0 ? 1.0 : -1.0;
    return tileAt(0.5 * float2(-dir.y, dir.x * sign) / size.z + 0.5, dir.z > 0.0 ? 4 : 5);
}

// The far edges belong to the last texels: wrapping would fetch the tile's opposite side.
float4 sampleTile(Texture2DArray<float4> tiles, Tile tile)
{
    float width;
    float height;
    float count;
    tiles.GetDimensions(width, height, count);
    const float2 uv = min(tile.uv, 1.0 - 0.5 / float2(width, height));
    return tiles.SampleLevel(samplerPano, float3(uv, tile.index), 0.0);
}

float4 colorOf(Tile tile)
{
    const uint level = maxColorLevelPerTile[tile.index];
    switch (level)
    {
    case 1:
        return sampleTile(panoColorL1, tile);
    case 2:
        return sampleTile(panoColorL2, tile);
    case 3:
        return sampleTile(panoColorL3, tile);
    case 5:
        if (projectionType != 0)
            return float4(0.0, 0.0, 0.0, 0.0);
        return sampleTile(panoColorL0, tile);
    default:
        return sampleTile(panoColorL0, tile);
    }
}

float distanceOf(Tile tile)
{
    switch (maxDepthLevelPerTile[tile.index])
    {
    case 1:
        return sampleTile(panoDepthL1, tile).r;
    case 2:
        return sampleTile(panoDepthL2, tile).r;
    case 3:
        return sampleTile(panoDepthL3, tile).r;
    default:
        return sampleTile(panoDepthL0, tile).r;
    }
}

ps_out ps_main(ps_in input)
{
    // An orthographic far plane may pass through the centre, from where one of its points has no direction and
    // the others lie at right angles to the view.
    const float3 dir = any(input.objPos) ? normalize(input.objPos) : input.viewDir;
    Tile tile;
    if (projectionType == 0)
        tile = equirectangularTile(dir);
    else
        tile = cubeTile(dir);

    const float cosine = dot(dir, input.viewDir);
    const float proj = cosine == 0.0 ? 1.0e-6 : cosine;
    const float r = clamp(distanceOf(tile) * proj, zNear / scale, zFar / scale - 1.0) / proj;
    const float4 worldPos = mul(model, float4(r * dir, 1.0));
    const float4 clipPos = mul(viewProjection, worldPos);

    ps_out output;
    output.color = colorOf(tile);
    output.worldPosition = worldPos;
    output.exactWorldPosition = worldPos;
    output.depth = clipPos.z / clipPos.w;
    return output;
}
