#include "shaders/colorprocessing.hlsl"

cbuffer cbConstant : register(b0)
{
    float width;
    float height;
    float brightness;
    float contrast;
    float4 bg_color;
    float opacity;
    int point_render_mode;
};

Texture2D<float4> color : register(t0);
// w = 0 where nothing was drawn.
Texture2D<float4> worldPosition : register(t1);
// Bound with the others; no mode needs it.
Texture2D<float4> exactWorldPosition : register(t2);

struct ps_in
{
    float4 pos : SV_POSITION;
    float2 uv : TEXCOORD0;
};

struct ps_out
{
    float4 color : SV_TARGET0;
    float4 worldPosition : SV_TARGET1;
};

static const float luminance = 2.0;

ps_in vs_main(uint vertexID : SV_VertexID)
{
    ps_in output;
    output.uv = float2((vertexID >> 1) & 1, vertexID & 1);
    output.pos = float4(lerp(-1.0, 1.0, output.uv.x), lerp(-1.0, 1.0, output.uv.y), 1.0, 1.0);
    return output;
}

// uv is taken at pixel centres, half a pixel away from any rounding error. Rows run downwards.
int3 pixelAt(float2 uv)
{
    return int3(floor(float2(uv.x, 1.0 - uv.y) * float2(width, height)), 0);
}

float mean(float3 c)
{
    return (c.r + c.g + c.b) / 3.0;
}

float3 normalAt(int3 pixel)
{
    const float3 p = worldPosition.Load(pixel).xyz;
    const float3 left = worldPosition.Load(pixel - int3(1, 0, 0)).xyz;
    const float3 top = worldPosition.Load(pixel - int3(0, 1, 0)).xyz;
    return normalize(cross(p - left, p - top));
}

float4 emptyColor(float4 col)
{
    switch (point_render_mode) {
    case 1:
        return float4(1.0, 1.0, 1.0, 0.0);
    case 2:
        return float4(0.0, 0.0, 0.0, 0.0);
    default:
        return col;
    }
}

float4 drawnColor(float4 col, int3 pixel)
{
    switch (point_render_mode) {
    case 0:
        return adjustBrightnessContrast(col, brightness, contrast);
    case 1: {
        // Dark contours on white.
        const float3 rgb = lerp(float3(1.0, 1.0, 1.0), float3(1.0, 1.0, 1.0) - col.rgb, col.a);
        const float alpha = 1.0 - mean(rgb);
        return saturate(float4(1.0 - luminance * (1.0 - rgb), luminance * alpha));
    }
    case 2:
        // Bright contours on black.
        return saturate(luminance * float4(col.rgb, mean(col.rgb)));
    case 3:
        return colorizeByNormal(normalAt(pixel));
    default:
        return col;
    }
}

ps_out ps_main(ps_in input)
{
    const int3 pixel = pixelAt(input.uv);
    const float4 position = worldPosition.Load(pixel);
    const float4 col = float4(color.Load(pixel).rgb, 1.0);
    ps_out output;
    output.worldPosition = position;
    if (position.w == 0.0)
        output.color = emptyColor(col);
    else
        output.color = drawnColor(col, pixel);
    output.color.a *= opacity;
    return output;
}
