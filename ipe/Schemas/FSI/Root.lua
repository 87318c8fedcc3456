-- The table Root: what was scanned, and what the scan found in all.

function adjust()
    setFieldStyle("Size", "bytes")
    setFieldStyle("Space", "bytes")
end
