// The tuning-file reader: values looked up by slash-separated paths
// ("/Config/Face/Margin") in a document loaded once per file name.
#ifndef BRIMVEL_CONFIG_XML_CONFIG_H
#define BRIMVEL_CONFIG_XML_CONFIG_H

#include "brimvel_tocra.h"
#include "config/xml_parser.h"

class TOCRA_XML_API XmlConfig {
  public:
    // Empty document, path cleared.
    XmlConfig();
    ~XmlConfig();
    // A copy shares the document (reference counted) and copies the path.
    XmlConfig(const XmlConfig& other);
    XmlConfig& operator=(const XmlConfig& other);

    // 1 when the file is loaded, 0 when not. A path equal to the one loaded
    // last is not read again (1 if that load gave a document). A path longer
    // than 255 characters, or null, answers 0 and changes nothing.
    int LoadConfig(const char* path);

    // The node at path (leading '/', components matched without regard to
    // case, from the node the loader returned), or the empty node.
    XMLNode SearchNode(const char* path);

    // The node's first text read with "%d" / "%f"; def when the node is
    // missing, has no text, or its text does not read as a number.
    int GetInteger(const char* path, int def);
    float GetFloat(const char* path, float def);
    // The node's first text (valid while this document is loaded), or def.
    const char* GetString(const char* path, const char* def);

    // Reads count white-space separated values of the node's first text into
    // out, in order, stopping at the first that does not read (the rest of
    // out is left as it was). 1 when the node has text, else 0; a null out or
    // a negative count does nothing and answers 0.
    int GetVectorShort(const char* path, short* out, int count);
    int GetVectorInt(const char* path, int* out, int count);
    int GetVectorUnsignedInt(const char* path, unsigned int* out, int count);
    int GetVectorFloat(const char* path, float* out, int count);

  private:
    friend struct XmlConfigAccess;
    // LoadConfig, telling an exhausted heap (*noMemory) apart from a file
    // that does not load.
    int Load(const char* path, bool* noMemory);
    const char* FirstText(const char* path);

    XMLNode m_root;
    char m_path[256];
};

// For the library's entry point: loads and reports an exhausted heap.
struct XmlConfigAccess {
    static int Load(XmlConfig& cfg, const char* path, bool* noMemory) { return cfg.Load(path, noMemory); }
};

extern "C" {
// Fills the 97-byte record from the 28 keys (defaults for missing or empty
// keys). Returns 0; a null out is refused with -998 and a log line, nothing
// written.
TOCRA_API int ImgProc_ParseXMLHdr(XmlConfig cfg, _stXmlConfigInfoHdr* out);
}

#endif
