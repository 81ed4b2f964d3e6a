# Draws what the row `growth` has measured: points is the folder of its files, folder that of the
# pictures.
set terminal pngcairo size 800,480 font "sans,11" noenhanced
set logscale xy
set grid xtics ytics linetype 1 linecolor rgb "#dddddd" linewidth 1
set rmargin 5
set border 3
set tics nomirror
set format x "%.0f"
set autoscale xfix
set mxtics 10
set mytics 10
set format y "%g"
set key left top reverse Left samplen 2
set style data linespoints
set style line 1 linewidth 2 pointtype 7 pointsize 1 linecolor rgb "#1b6ca8"
set style line 2 linewidth 2 pointtype 5 pointsize 1 linecolor rgb "#c8553d"
set style line 3 linewidth 2 pointtype 9 pointsize 1.2 linecolor rgb "#4b8b3b"

set output folder."/growth-jobs.png"
set title "Memory of a table of jobs"
set xlabel "jobs"
set ylabel "MiB more than an empty table"
plot points."/jobs" linestyle 1 title "transcoder, submitted and waiting", \
     points."/old-transcoder" linestyle 2 title "transcoder, old jobs behind a restart", \
     points."/old-legacy" linestyle 3 title "legacy transcoder, old jobs behind a restart"

set output folder."/growth-start.png"
set title "Start over the folders of old jobs, warm"
set xlabel "job folders"
set ylabel "seconds until they are loaded"
plot points."/start-transcoder" linestyle 1 title "transcoder", \
     points."/start-legacy" linestyle 2 title "legacy transcoder"

unset logscale
unset mxtics
unset mytics
set yrange [0:*]
set xrange [0:*]
set output folder."/growth-connections.png"
set title "Memory of idle connections"
set xlabel "connections"
set ylabel "MiB more than without any"
plot points."/connections-never-used" linestyle 1 title "never used", \
     points."/connections-answered-once" linestyle 2 title "answered once"
