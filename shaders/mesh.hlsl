#define CLIPPING_PLANES_MAX_COUNT 8

cbuffer cbPerFrameConstants : register(b0)
{
    float4x4 modelMatrix;
    float4x4 viewProjectionMatrix;
    // In world coordinates; those not in use are zero.
    float4 clipping_planes[CLIPPING_PLANES_MAX_COUNT];
    float unitScale;
    float3 cameraPosition;
    float3 lightPos;
};

struct vs_in
{
    float3 pos : POS;
    float3 nml : NML;
    float2 uv : UV;
    float4 col : COL;
};

struct ps_in
{
    float4 pos : SV_POSITION;
    float4 worldPosition : WORLD_POS;
    float3 normal : NML;
    float4 col : COL;
};

struct ps_out
{
    float4 color : SV_TARGET0;
    float4 worldPosition : SV_TARGET1;
    float4 exactWorldPosition : SV_TARGET2;
};

// The zero vector where there is no direction.
float3 safeNormalize(float3 v)
{
    const float squaredLength = dot(v, v);
    return squaredLength > 0.0 && squaredLength < 1e38 ? v * rsqrt(squaredLength) : float3(0.0, 0.0, 0.0);
}

ps_in vs_main(vs_in input)
{
    const float4x4 scale = {
        unitScale, 0.0, 0.0, 0.0,
        0.0, unitScale, 0.0, 0.0,
        0.0, 0.0, unitScale, 0.0,
        0.0, 0.0, 0.0, 1.0
    };
    const float4x4 worldMatrix = mul(modelMatrix, scale);
    ps_in output;
    output.worldPosition = mul(worldMatrix, float4(input.pos, 1.0));
    output.pos = mul(viewProjectionMatrix, output.worldPosition);
    output.normal = safeNormalize(mul((float3x3)worldMatrix, input.nml));
    output.col = input.col;
    return output;
}

ps_out ps_main(ps_in input)
{
    for (uint i = 0; i < CLIPPING_PLANES_MAX_COUNT; ++i) {
        if (dot(input.worldPosition, clipping_planes[i]) < 0.0)
            discard;
    }
    // Lit from the eye, on both sides.
    const float3 toEye = safeNormalize(cameraPosition - input.worldPosition.xyz);
    float d = dot(input.normal, -toEye);
    if (d < 0.0)
        d = dot(-input.normal, -toEye);
    const float diffuse = saturate(d);

    ps_out output;
    output.color = float4(0.2 * input.col.rgb + 0.8 * diffuse * input.col.rgb, 1.0);
    output.worldPosition = input.worldPosition;
    output.exactWorldPosition = input.worldPosition;
    return output;
}
