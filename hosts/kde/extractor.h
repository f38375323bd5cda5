// SPDX-License-Identifier: MIT
// kfilemetadata_tidewell: the KFileMetaData extractor plugin for e-mail files.
//
// KFileMetaData has no extractor for message/rfc822, so KDE's file search
// (Baloo, behind Dolphin and KRunner) finds saved mail by its file name only.
// This plugin imports each message through the core in its full reading and
// hands the result over as message.h describes.
//
// It runs inside baloo_file_extractor, one file after another in a process
// that lives for many files and whose standard output is its pipe to the
// indexer. So nothing here writes to standard output, no exception leaves
// extract(), and a message that cannot be read or understood only gives less
// metadata: the next file is never affected.
#pragma once

#include <QStringList>

#include <KFileMetaData/ExtractorPlugin>

namespace kde_host {

class extractor_t : public KFileMetaData::ExtractorPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID "org.kde.kf5.kfilemetadata.ExtractorPlugin" FILE "extractor.json")
  Q_INTERFACES(KFileMetaData::ExtractorPlugin)

public:
  explicit extractor_t(QObject* parent = nullptr);

  QStringList mimetypes() const override;
  void extract(KFileMetaData::ExtractionResult* result) override;
};

} // namespace kde_host
