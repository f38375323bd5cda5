// SPDX-License-Identifier: MIT
// The metadata attribute keys the importer writes, as Foundation strings.
//
// On the Mac they are the platform's constants (CFStrings, toll-free bridged
// to NSString); where those headers are absent we define strings of the same
// text, which is what the platform's constants hold. The received date has no
// platform constant: its key is the literal attribute name.
#pragma once

#import <Foundation/Foundation.h>

#ifdef __APPLE__
#include <CoreServices/CoreServices.h>
#else
extern "C" {
extern NSString* const kMDItemSubject;
extern NSString* const kMDItemDisplayName;
extern NSString* const kMDItemTextContent;
extern NSString* const kMDItemContentCreationDate;
extern NSString* const kMDItemAuthors;
extern NSString* const kMDItemAuthorEmailAddresses;
extern NSString* const kMDItemRecipients;
extern NSString* const kMDItemRecipientEmailAddresses;
}
#endif

namespace importer::mac {
// The one attribute without a platform constant.
NSString* date_received_key();
} // namespace importer::mac
