#pragma once

// Owning handles for Cairo objects, for the programs that draw the resources.

#include <memory>

#include <cairo.h>

template <auto fn>
struct CDeleter {
    template <class T>
    void operator()(T* p) const {
        fn(p);
    }
};
template <class T, auto fn>
using CHandle = std::unique_ptr<T, CDeleter<fn>>;
using SurfacePtr = CHandle<cairo_surface_t, cairo_surface_destroy>;
using CairoPtr = CHandle<cairo_t, cairo_destroy>;
using PatternPtr = CHandle<cairo_pattern_t, cairo_pattern_destroy>;
using PathPtr = CHandle<cairo_path_t, cairo_path_destroy>;
