#pragma once

#include "platform/data/VxParameter.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

/// An ordered tree of parameters. Entries keep insertion order; names are
/// unique among the entries of one bundle when inserted with replace (the
/// default). The bundle owns its entries.
///
/// Finding an entry by name, and so inserting with replace, costs constant
/// time on average in a large bundle (the slices of a long stack, the
/// attributes of a header): such a bundle indexes its names.
class VxParamBundle : public VxParamBase
{
public:
    explicit VxParamBundle(const char *name = "");
    VxParamBundle(const VxParamBundle &other); ///< deep copy
    VxParamBundle &operator=(const VxParamBundle &other);
    ~VxParamBundle() override;

    bool isBundle() const override { return true; }
    std::unique_ptr<VxParamBase> clone() const override;

    /// Takes ownership of entry (null is ignored and returns -1). With
    /// replace, an entry of the same name is destroyed and the new one takes
    /// its place in the order; otherwise (or when there is none) it is
    /// appended. Returns the entry's index.
    int insert(VxParamBase *entry, bool replace = true);
    int insert(std::unique_ptr<VxParamBase> entry, bool replace = true);

    /// Inserts a deep copy of entry (VxParamBundle::copy of the host), with replace.
    int copy(const VxParamBase *entry);

    /// Destroys the first entry of that name; false when there is none.
    bool remove(const char *name);
    /// Destroys every entry.
    void clear();
    /// Takes the entry at index i out of the bundle without destroying it.
    std::unique_ptr<VxParamBase> take(int i);

    /// Number of entries (parameters and bundles).
    int size() const { return static_cast<int>(entries.size()); }
    VxParamBase *entry(int i) const;
    /// Index of the first entry of that name, or -1.
    int indexOf(const char *name) const;
    VxParamBase *find(const char *name) const;
    /// The parameter of that name (not a bundle), or null.
    VxParameter *parameter(const char *name) const;

    /// The sub-bundle of that name, or null.
    VxParamBundle *bundle(const char *name) const;
    /// The i-th sub-bundle, counting bundles only, or null.
    VxParamBundle *bundle(int i) const;
    int nBundles() const;

    /// Convenience: insert-with-replace of a parameter.
    void setString(const char *name, const KcString &value);
    void setInt(const char *name, int value);
    void setFloat(const char *name, double value);
    /// The text of a parameter, or fallback when absent.
    KcString getString(const char *name, const KcString &fallback = KcString()) const;

    /// Every entry, depth first, as "name = value" lines indented by depth
    /// (for listings and tests). A sub-bundle is a line "name:" followed by
    /// its entries; each depth level indents by two spaces.
    KcString dump(int indent = 0) const;

private:
    friend class VxParamBase;
    /// An entry was renamed: the name index is made again when next needed.
    void entryRenamed();
    /// Adopts entry as the bundle's (sets its owner) and appends it.
    int append(std::unique_ptr<VxParamBase> entry);
    /// Drops the name index (entries moved or were renamed).
    void forgetIndex() const;

    std::vector<std::unique_ptr<VxParamBase>> entries;
    /// Name -> index of the first entry of that name; valid while `indexed`.
    /// Small bundles (most of them: one per image) are searched without it.
    mutable std::unordered_map<std::string, int> firstOfName;
    mutable bool indexed = false;
};
