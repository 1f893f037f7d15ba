#ifndef UNIT_OPEN_ENGINES_H
#define UNIT_OPEN_ENGINES_H

#include <simplePlayer/DataSimplePlayer_p.h>
#include <simplePlayer/StreamSimplePlayer_p.h>
#include <simplePlayer/UriSimplePlayer_p.h>

// The engines with their protected members within reach.

class OpenUriEngine : public UriSimplePlayerImpl
{
public:
    using UriSimplePlayerImpl::endReported;
    using UriSimplePlayerImpl::initialized;
    using UriSimplePlayerImpl::pipeline;
    using UriSimplePlayerImpl::player;
    using UriSimplePlayerImpl::queue;
    using UriSimplePlayerImpl::sink;
    using UriSimplePlayerImpl::uri;
    using UriSimplePlayerImpl::uriDecodeBin;
    using UriSimplePlayerImpl::uriPlayer;
    using UriSimplePlayerImpl::UriSimplePlayerImpl;
};

class OpenDataEngine : public DataSimplePlayerImpl
{
public:
    using DataSimplePlayerImpl::appsrc;
    using DataSimplePlayerImpl::data;
    using DataSimplePlayerImpl::dataPlayer;
    using DataSimplePlayerImpl::DataSimplePlayerImpl;
    using DataSimplePlayerImpl::decodebin;
    using DataSimplePlayerImpl::device;
    using DataSimplePlayerImpl::endReported;
    using DataSimplePlayerImpl::initialized;
    using DataSimplePlayerImpl::offset;
    using DataSimplePlayerImpl::pipeline;
    using DataSimplePlayerImpl::player;
    using DataSimplePlayerImpl::queue;
    using DataSimplePlayerImpl::sink;
    using DataSimplePlayerImpl::token;
};

class OpenStreamEngine : public StreamSimplePlayerImpl
{
public:
    using StreamSimplePlayerImpl::appsrc;
    using StreamSimplePlayerImpl::caps;
    using StreamSimplePlayerImpl::decodebin;
    using StreamSimplePlayerImpl::endReported;
    using StreamSimplePlayerImpl::initialized;
    using StreamSimplePlayerImpl::pipe;
    using StreamSimplePlayerImpl::pipeline;
    using StreamSimplePlayerImpl::pipeName;
    using StreamSimplePlayerImpl::queue;
    using StreamSimplePlayerImpl::sink;
    using StreamSimplePlayerImpl::streamPlayer;
    using StreamSimplePlayerImpl::StreamSimplePlayerImpl;
};

#endif
