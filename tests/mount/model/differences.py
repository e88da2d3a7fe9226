"""Where the volume is meant to differ from a local disk. Each entry has its reason; anything else is a fault.

`known` tells whether a pair of results is one of these.
"""

# Not compared at all, because `operations` never looks at them:
#   modes and owners      the volume shows 0644, 0755 and the mounting user for everything
#   sizes of folders      the helper's business; the root shows 0; with them what seeking and mapping do to a folder
#   numbers of links      1 and 2, the volume has no links
#   access, change times  the volume has one time and shows it as all of them
#   inode numbers         a function of the path
# Times are set in whole seconds, because the volume keeps milliseconds.
# Links, special files and extended attributes do not occur in the sequences: they are refused, see links_xattr.

EITHER = [
    # (kinds, errors): each of these names is a right answer to the same mistake.
    ({"rename", "renameNew", "saveFile"}, {"ENOTEMPTY", "EEXIST"},
     "a folder with entries is not replaced; a disk may call that by either name"),
]

REMOVED_FOLDER = [
    # (result on the volume): what the descriptor of a folder that was removed answers, whatever a disk does.
    (("error", "ESTALE"), "the helper cannot be asked about a folder that is gone, and the volume keeps no copy of one"),
]


def known(kind, mount, plain, is_about_removed_folder):
    if mount == plain:
        return True
    if is_about_removed_folder:
        return any(mount == result for result, _ in REMOVED_FOLDER)
    if mount[0] == plain[0] == "error":
        return any(kind in kinds and {mount[1], plain[1]} <= names for kinds, names, _ in EITHER)
    return False
