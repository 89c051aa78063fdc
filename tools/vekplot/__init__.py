"""The modules of vek-plot, in the order in which the data passes through them.

    arguments   the command line
    files       which files there are, what they contain, what they gain
    logs        what a log says
    csvlog      reads lines of figures and of ranges
    jsonlog     reads lines of JSON
    passes      when the passes were
    rules       what the logs do not say: kinds and restarts
    metrics     the metrics of a program
    programs    the programs that wrote the logs
    timelines   ranges
    document    all that is drawn
    writing     ... in JSON
    page        ... as one HTML file
    follow      ... as a page that grows with the files
    trace       ranges as trace events
    picture     PNG and SVG
    output      the files that are written
"""
