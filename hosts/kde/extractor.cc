// SPDX-License-Identifier: MIT
#include "hosts/kde/extractor.h"

#include <QFile>

#include "hosts/kde/message.h"
#include "importer/import.h"

namespace kde_host {

extractor_t::extractor_t(QObject* parent) : KFileMetaData::ExtractorPlugin(parent) {}

QStringList extractor_t::mimetypes() const {
  return {QStringLiteral("message/rfc822")};
}

void extractor_t::extract(KFileMetaData::ExtractionResult* result) {
  try {
    std::optional<std::string> const bytes =
        read_file_prefix(QFile::encodeName(result->inputUrl()).constData(), max_message_bytes);
    if (!bytes)
      return;
    importer::attribute_set_t attributes;
    importer::import_bytes(bytes->data(), bytes->data() + bytes->size(), attributes,
                           importer::options_t{.reading = importer::reading_t::full});
    fill(attributes, *result);
  } catch (...) {
    // Out of memory is all that can get here; the file keeps whatever was
    // handed over before, and the indexer goes on with the next one.
  }
}

} // namespace kde_host
