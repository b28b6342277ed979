set(LUMARO_CORE_STREAMING_SOURCES Camera.cpp CameraDepth.cpp CameraQueries.cpp UploadAllowance.cpp
    WorldPositions.cpp)
set(LUMARO_CORE_STREAMING_HEADERS Camera.h DepthTerms.h RenderMode.h UploadAllowance.h WorldPositions.h
    ZRangeNeeds.h)
set(LUMARO_CORE_RENDER_SOURCES
    PostProcess.cpp
    Renderable.cpp
    RenderPass.cpp
    Renderer.cpp
    RendererPicking.cpp
    RendererReadBack.cpp
    RendererSettings.cpp)
set(LUMARO_CORE_RENDER_HEADERS
    PostProcess.h
    ReadMapping.h
    Renderable.h
    RenderPass.h
    Renderer.h
    TargetNames.h)
