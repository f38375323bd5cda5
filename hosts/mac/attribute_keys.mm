// SPDX-License-Identifier: MIT
// Attribute keys: the received-date name everywhere, and stand-ins for the
// platform's kMDItem constants where the platform headers are absent. The
// stand-ins hold the constants' own text, so a dictionary written here carries
// the same keys a Mac would store.
#include "hosts/mac/attribute_keys.h"

#ifndef __APPLE__
extern "C" {
NSString* const kMDItemSubject = @"kMDItemSubject";
NSString* const kMDItemDisplayName = @"kMDItemDisplayName";
NSString* const kMDItemTextContent = @"kMDItemTextContent";
NSString* const kMDItemContentCreationDate = @"kMDItemContentCreationDate";
NSString* const kMDItemAuthors = @"kMDItemAuthors";
NSString* const kMDItemAuthorEmailAddresses = @"kMDItemAuthorEmailAddresses";
NSString* const kMDItemRecipients = @"kMDItemRecipients";
NSString* const kMDItemRecipientEmailAddresses = @"kMDItemRecipientEmailAddresses";
}
#endif

namespace importer::mac {

NSString* date_received_key() {
  return @"com_apple_mail_dateReceived";
}

} // namespace importer::mac
