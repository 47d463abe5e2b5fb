// The figures of bench/hot_reload.sh: a program with ten thousand compiled
// methods asks for a hot reload, while a second thread keeps compiling fresh
// methods and times each first call, which waits for the compile and thus for
// the reload walk that holds the profiler's lock. Then it loads and unloads
// plugins, whose unloads hold that lock too (the profiler's account times them).
using System.Diagnostics;
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.Loader;

namespace Reload
{
    public static unsafe class ReloadBench
    {
        private const int Compiled = 10_000;
        private const int Probes = 20_000;
        private const int Plugins = 20;

        public static int Run(bool profiled, delegate* unmanaged<byte, void> reload)
        {
            MethodInfo[] methods = Emit("BenchWarm", Compiled);
            MethodInfo[] probes = Emit("BenchProbe", Probes);
            foreach (MethodInfo method in methods)
                method.Invoke(null, new object[] { 1 });
            int next = 0;
            double before = Longest(probes, ref next, 500);
            double during = 0;
            var done = new ManualResetEventSlim();
            var prober = new Thread(() =>
            {
                while (!done.IsSet && next < Probes)
                    during = Math.Max(during, Time(probes[next++]));
            });
            prober.Start();
            var watch = Stopwatch.StartNew();
            if (profiled)
                reload(1);
            double reloadMs = watch.Elapsed.TotalMilliseconds;
            done.Set();
            prober.Join();
            Console.WriteLine($"compiled methods: {Compiled + next}");
            Console.WriteLine($"reload asked and done: {reloadMs:F1} ms");
            Console.WriteLine($"longest first call before the reload: {before:F2} ms");
            Console.WriteLine($"longest first call during the reload: {during:F2} ms");
            watch.Restart();
            int unloaded = Enumerable.Range(0, Plugins).Count(_ => Plugin.LoadAndUnload().StartsWith("unloaded"));
            Console.WriteLine($"plugins loaded and unloaded: {unloaded} in {watch.Elapsed.TotalMilliseconds:F0} ms");
            return 0;
        }

        private static double Longest(MethodInfo[] probes, ref int next, int count)
        {
            double longest = 0;
            for (int i = 0; i < count; i++)
                longest = Math.Max(longest, Time(probes[next++]));
            return longest;
        }

        private static double Time(MethodInfo method)
        {
            var watch = Stopwatch.StartNew();
            method.Invoke(null, new object[] { 2 });
            return watch.Elapsed.TotalMilliseconds;
        }

        // An assembly of `count` static methods int M<i>(int x) => x + i.
        private static MethodInfo[] Emit(string name, int count)
        {
            var builder = new PersistedAssemblyBuilder(new AssemblyName(name), typeof(object).Assembly);
            TypeBuilder type = builder.DefineDynamicModule(name).DefineType(name + ".Methods",
                TypeAttributes.Public | TypeAttributes.Abstract | TypeAttributes.Sealed);
            for (int i = 0; i < count; i++)
            {
                ILGenerator il = type.DefineMethod("M" + i, MethodAttributes.Public | MethodAttributes.Static,
                    typeof(int), new[] { typeof(int) }).GetILGenerator();
                il.Emit(OpCodes.Ldarg_0);
                il.Emit(OpCodes.Ldc_I4, i);
                il.Emit(OpCodes.Add);
                il.Emit(OpCodes.Ret);
            }
            type.CreateType();
            using var stream = new MemoryStream();
            builder.Save(stream);
            stream.Position = 0;
            Type loaded = AssemblyLoadContext.Default.LoadFromStream(stream).GetType(name + ".Methods");
            return Enumerable.Range(0, count).Select(i => loaded.GetMethod("M" + i)).ToArray();
        }
    }
}
