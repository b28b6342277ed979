cbuffer VS_CONSTANT_BUFFER : register(b0)
{
    float4x4 world_view_proj;
};

struct vs_in
{
    float3 posMin : POS_MIN;
    float3 posMax : POS_MAX;
    float4 col : COL;
    uint vertexID : SV_VertexID;
};

struct ps_in
{
    float4 pos : SV_POSITION;
    float4 col : COL;
};

struct ps_out
{
    float4 color : SV_TARGET0;
    float4 worldPosition : SV_TARGET1;
};

// Pairs of corners; bit 2 of a corner chooses x, bit 1 y, bit 0 z.
static const uint edges[24] = {0, 4, 4, 5, 5, 1, 1, 0, 2, 6, 6, 7, 7, 3, 3, 2, 0, 2, 4, 6, 5, 7, 1, 3};

ps_in vs_main(vs_in input)
{
    const uint index = edges[input.vertexID];
    const float3 upper = float3((index >> 2) & 1, (index >> 1) & 1, index & 1);
    ps_in output;
    output.pos = mul(world_view_proj, float4(lerp(input.posMin, input.posMax, upper), 1.0));
    output.col = input.col;
    return output;
}

ps_out ps_main(ps_in input)
{
    ps_out output;
    output.color = input.col;
    // w = 0: nothing to pick here.
    output.worldPosition = float4(0.0, 0.0, 0.0, 0.0);
    return output;
}
