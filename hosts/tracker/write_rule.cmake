# SPDX-License-Identifier: MIT
# Writes the extractor rule with the module's hash. Tracker's file miner keeps
# the hash it saw with every extracted file and extracts the file again when
# it changes, so a rebuilt module re-indexes the mail it already saw.
# Called as: cmake -DMODULE=... -DTEMPLATE=... -DOUTPUT=... -P write_rule.cmake
file(SHA256 "${MODULE}" hash)
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
