#pragma once

class QUrl;

/// Whether \a url is fetched by HTTP or HTTPS. What servers name may be anything else: a local
/// file, whose content would pass for their answer, or a pipe, which blocks who opens it.
bool isWebAddress(const QUrl &url);
