#ifndef KOVA_SIMPLEPLAYER_EXPORT_H
#define KOVA_SIMPLEPLAYER_EXPORT_H

#include <QtCore/qglobal.h>

/// Marks the classes that libkova_simpleplayer.so exports.
#ifdef KOVA_SIMPLEPLAYER_BUILDING
#define KOVA_SIMPLEPLAYER_EXPORT Q_DECL_EXPORT
#else
#define KOVA_SIMPLEPLAYER_EXPORT Q_DECL_IMPORT
#endif

#endif
