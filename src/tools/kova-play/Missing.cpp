#include "Missing.h"

#include "Formats.h"
#include "Owners.h"

#include <gst/pbutils/missing-plugins.h>

namespace {

bool isErrorOnMissingPlugin(GstMessage* message)
{
    GError* parsed = nullptr;
    gst_message_parse_error(message, &parsed, nullptr);
    const gst::Error error(parsed);
    return g_error_matches(error.get(), GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) ||
           g_error_matches(error.get(), GST_STREAM_ERROR, GST_STREAM_ERROR_CODEC_NOT_FOUND);
}

} // namespace

void Missing::note(GstMessage* message)
{
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        failed = failed || isErrorOnMissingPlugin(message);
    }
    if (!gst_is_missing_plugin_message(message)) {
        return;
    }
    const gst::Text name(gst_missing_plugin_message_get_description(message));
    const gst::Text detail(gst_missing_plugin_message_get_installer_detail(message));
    names << QString::fromUtf8(name.get());
    const QString package = formats::packageFor(QString::fromUtf8(detail.get()));
    if (!package.isEmpty()) {
        packages << package;
    }
    names.removeDuplicates();
    packages.removeDuplicates();
}

QString Missing::reason() const
{
    return "missing plug-in: " + names.join(", ");
}

QString Missing::hint() const
{
    return packages.isEmpty() ? QString() : "apt-get install " + packages.join(' ');
}
