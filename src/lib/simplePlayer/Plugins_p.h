#ifndef SIMPLE_PLAYER_PLUGINS_P_H
#define SIMPLE_PLAYER_PLUGINS_P_H

/// Loads what all kinds of players have in common, so that the first start of a process does not
/// have to: the plug-ins of the elements and of the type finders, and the classes of the elements.
/// Only the first call of a process does anything. What cannot be loaded is passed over in silence:
/// the start that needs it reports it.
///
/// GStreamer must have been initialized. Any thread may call this.
void loadPlugins();

/// Loads the plug-in of one element and makes its class, if there is such an element.
void loadElement(const char* name);

#endif
