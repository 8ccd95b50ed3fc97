// JHeaderText: the human-readable text form of a profile header, stored in
// every profile file beside the binary record (no reader parses it), and the
// storage place suggested for a profile from its header.
#pragma once

#include "base/qtless/qstring.h"
#include "profile/profile_header.h"

class JHeaderText {
public:
    // The XML-like header block: a comment line, <profilehdr version="2.0">,
    // one element per present field in record order, </profilehdr>.
    static qtless::QString write(const JProfileHeader& header);

    // < > & " ' become &lt; &gt; &amp; &quot; &apos;; all else is copied.
    static qtless::QString escape(const qtless::QString& text);

    // "/maker/model[/film]", "other" standing for an absent maker or model.
    static qtless::QString autoDirectory(const JProfileHeader& header);

    // The suggested file name (without extension) built from the present
    // fields; "unnamed" when nothing but the missing model contributes.
    static qtless::QString autoFileName(const JProfileHeader& header);
};
