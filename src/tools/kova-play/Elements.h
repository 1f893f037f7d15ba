#ifndef KOVA_PLAY_ELEMENTS_H
#define KOVA_PLAY_ELEMENTS_H

#include <QtCore/QString>

#include <vector>

/// The GStreamer elements that the players are made of.
namespace elements {

struct Element
{
    const char* name;    ///< of the factory
    const char* package; ///< the Debian package that brings it
};

/// All elements that must be installed.
const std::vector<Element>& needed();

/// Initialises GStreamer.
/// @return why that failed; empty when it did not
QString initialise();

/// Whether GStreamer's registry has the element. After initialise() only.
bool isInstalled(const Element& element);

} // namespace elements

#endif
