// SPDX-License-Identifier: MIT
#include "hosts/kde/extractor.h"

#include <system_error>

#include <QFile>

#include "hosts/kde/message.h"
#include "importer/message.h"

namespace kde_host {

extractor_t::extractor_t(QObject* parent) : KFileMetaData::ExtractorPlugin(parent) {}

QStringList extractor_t::mimetypes() const {
  return {QStringLiteral("message/rfc822")};
}

void extractor_t::extract(KFileMetaData::ExtractionResult* result) {
  try {
    std::error_code error;
    tidewell::message_t const message =
        tidewell::parse_file(QFile::encodeName(result->inputUrl()).constData(), read_options(), error);
    if (error)
      return;
    fill(message, *result);
  } catch (...) {
    // Out of memory is all that can get here; the file keeps whatever was
    // handed over before, and the indexer goes on with the next one.
  }
}

} // namespace kde_host
