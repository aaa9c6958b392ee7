# Sourced after setup.sh: Debian's archive, and the kernel that it has.

# The archive that this machine itself uses, as a line of sources.list.
archive() {
    local site
    site=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Component: main' \
        'Codename: bookworm' | head -n 1)
    echo "deb ${site:-http://deb.debian.org/debian} bookworm main"
}

# Sets kernel to the name of the newest package.
newest_kernel() {
    local words='s/^ *Depends: \(linux-image-[0-9].*\)/\1/p'
    kernel=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n "$words" | head -n 1)
    if [ -z "$kernel" ]; then
        update_lists
        kernel=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n "$words" | head -n 1)
    fi
}

# fetch_kernel FOLDER: unpacks it into FOLDER/kernel; nothing is installed.
fetch_kernel() {
    local folder=$1
    fetch() { (cd "$folder" && apt-get download -qq -o APT::Sandbox::User=root "$kernel"); }
    fetch || { update_lists && fetch; } # the lists may be older than the archive
    dpkg -x "$folder"/linux-image-*.deb "$folder/kernel"
    rm "$folder"/linux-image-*.deb
}
