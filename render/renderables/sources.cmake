set(LUMARO_RENDERABLES_SOURCES GroupRenderable.cpp Thumbnail.cpp)
    set(LUMARO_RENDERABLES_HEADERS GroupRenderable.h Thumbnail.h)
