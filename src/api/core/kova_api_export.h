#ifndef KOVA_API_EXPORT_H
#define KOVA_API_EXPORT_H

#include <QtCore/qglobal.h>

/// Marks the classes and functions that libkova_api.so exports.
#ifdef KOVA_API_BUILDING
#define KOVA_API_EXPORT Q_DECL_EXPORT
#else
#define KOVA_API_EXPORT Q_DECL_IMPORT
#endif

#endif
