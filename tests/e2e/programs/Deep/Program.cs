// Exceptions that leave many frames at once: a recursion that throws at its
// bottom, on a thread of the default stack size and on one of 16 MB, and a
// chain of iterators that throws from its innermost one. Every frame has a
// finally whose order the program checks. Run with "bench N" it times one
// exception through N frames instead, for the benchmark. No frame is inlined,
// so that a plain run's stack traces show every frame, as a profiled run's do.
using System.Diagnostics;
using System.Runtime.CompilerServices;

namespace Deep
{
    public sealed class DepthReached : Exception
    {
        public DepthReached(int depth) : base("depth " + depth) { }
    }

    public static class Recursion
    {
        // The depths whose finally ran, innermost first.
        public static readonly List<int> unwound = new List<int>();

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Descend(int depth, int bottom)
        {
            try
            {
                if (depth == bottom)
                    throw new DepthReached(depth);
                return Descend(depth + 1, bottom) + 1;
            }
            finally
            {
                Unwound(depth);
            }
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        static void Unwound(int depth)
        {
            unwound.Add(depth);
        }
    }

    public static class Iterators
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static IEnumerable<int> Chain(int level)
        {
            if (level == 0)
            {
                yield return 0;
                throw new InvalidDataException("innermost iterator");
            }
            foreach (int value in Chain(level - 1))
                yield return value + 1;
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Sum(IEnumerable<int> values)
        {
            int sum = 0;
            foreach (int value in values)
                sum += value;
            return sum;
        }
    }

    public static class Program
    {
        public static int Main(string[] args)
        {
            if (args.Length == 2 && args[0] == "bench")
                return Bench(int.Parse(args[1]));
            Report("default stack, 1000 frames", () => Throw(1000), 0);
            Report("16 MB stack, 10000 frames", () => Throw(10000), 16 * 1024 * 1024);
            Report("iterators, 1000 levels", () => Iterators.Sum(Iterators.Chain(1000)), 0);
            return 3;
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        static int Throw(int frames)
        {
            Recursion.unwound.Clear();
            try
            {
                return Recursion.Descend(1, frames);
            }
            finally
            {
                bool inOrder = Recursion.unwound.Count == frames;
                for (int i = 0; inOrder && i < frames; ++i)
                    inOrder = Recursion.unwound[i] == frames - i;
                Console.WriteLine("finally blocks: " + Recursion.unwound.Count + (inOrder ? " in order" : " OUT OF ORDER"));
            }
        }

        // Runs the work on its own thread and prints the exception that came
        // out of it with its whole stack trace.
        static void Report(string name, Func<int> work, int stackSize)
        {
            Exception caught = null;
            var thread = new Thread(() =>
            {
                try
                {
                    work();
                }
                catch (Exception e)
                {
                    caught = e;
                }
            }, stackSize);
            thread.Start();
            thread.Join();
            Console.WriteLine(name + ": " + (caught == null ? "no exception" : caught.GetType().FullName + ": " + caught.Message));
            string trace = caught?.StackTrace ?? "";
            Console.WriteLine("  stack trace of " + trace.Split('\n').Length + " lines");
            Console.WriteLine(trace);
        }

        static int Bench(int frames)
        {
            const int rounds = 2000;
            for (int i = 0; i < 100; ++i)
                Swallow(frames);
            var watch = Stopwatch.StartNew();
            for (int i = 0; i < rounds; ++i)
                Swallow(frames);
            Console.WriteLine("one exception through " + frames + " frames: " +
                (watch.Elapsed.TotalMilliseconds * 1000 / rounds).ToString("F1") + " us");
            return 0;
        }

        static void Swallow(int frames)
        {
            try
            {
                Recursion.Descend(1, frames);
            }
            catch (DepthReached)
            {
            }
        }
    }
}
