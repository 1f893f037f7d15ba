#ifndef KOVA_API_EXPORT_H
#define KOVA_API_EXPORT_H

#include <QtCore/qglobal.h>

/// Marks what libkova_api.so offers to other libraries and programs.
#ifdef KOVA_API_BUILDING
#define KOVA_API_EXPORT Q_DECL_EXPORT
#else
#define KOVA_API_EXPORT Q_DECL_IMPORT
#endif

#endif
