#!/usr/bin/env bash
# Does jobs, one on each line of a file, as an array of Slurm, each task of which does its share: sbatch array.sh jobs.jsonl
#
#SBATCH --job-name=clipworks
#SBATCH --array=0-9          # as many tasks as there are lines, or as may work at once
#SBATCH --cpus-per-task=2    # the threads of an encoder; the output depends on their number
#SBATCH --mem=2G             # what the largest job needs: "clipworks run JOB --plan" tells how much that is at most
#SBATCH --time=12:00:00      # for a task's whole share
#SBATCH --requeue            # on another machine, when one is lost: what is done is skipped
set -uo pipefail

jobs=$1
most_tries=3

# Of what Slurm gives, so that a job which needs more fails with a sentence, and the task is not killed.
memory=$((SLURM_MEM_PER_NODE * 9 / 10))MB
fails=0
may_succeed_later=no
while IFS= read -r job; do
  clipworks run "$job" --threads "$SLURM_CPUS_PER_TASK" --memory "$memory" --force </dev/null
  case $? in
    0) ;;
    4) may_succeed_later=yes ;;
    130) exit 130 ;; # Slurm ends the task
    *) fails=$((fails + 1)) ;; # the sentence is in the task's output
  esac
done < <(awk -v tasks="$SLURM_ARRAY_TASK_COUNT" -v task="$SLURM_ARRAY_TASK_ID" 'NR % tasks == task' "$jobs")

if [[ $may_succeed_later == yes ]] && ((${SLURM_RESTART_COUNT:-0} + 1 < most_tries)); then
  scontrol requeue "${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID"
fi
[[ $fails == 0 && $may_succeed_later == no ]]
